#include "platform/wlroots/WaylandConnection.h"

#include "base/Fault.h"
#include "platform/wlroots/WaylandHandles.h"

#include <QFile>
#include <QScopeGuard>

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ostrel {

namespace {

QByteArray socketPath(const QByteArray &display)
{
    QByteArray name = display.isEmpty() ? qgetenv("WAYLAND_DISPLAY") : display;
    if (name.isEmpty() || name.startsWith('/'))
        return name;
    const QByteArray folder = qgetenv("XDG_RUNTIME_DIR");
    return folder.isEmpty() ? QByteArray() : folder + '/' + name;
}

std::unexpected<Error> unreachable(const QByteArray &why)
{
    return std::unexpected(faultError(Fault::NoWaylandDisplay, QString::fromLocal8Bit(why)));
}

/// The library's own way to connect would wait without end for a compositor that hangs.
/// @return an open descriptor
Result<int> connectToSocket(const QByteArray &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.isEmpty() || path.size() >= qsizetype(sizeof(address.sun_path)))
        return unreachable("WAYLAND_DISPLAY or XDG_RUNTIME_DIR is not set");
    std::memcpy(address.sun_path, path.constData(), std::size_t(path.size()));
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0)
        return unreachable(std::strerror(errno));
    if (::connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0)
        return descriptor;
    const int failure = errno;
    ::close(descriptor);
    return unreachable(path + ": " + std::strerror(failure));
}

} // namespace

Result<std::shared_ptr<WaylandConnection>> WaylandConnection::open(const QByteArray &display,
                                                                   std::chrono::milliseconds patience)
{
    const auto descriptor = connectToSocket(socketPath(display));
    if (!descriptor)
        return std::unexpected(descriptor.error());
    wl_display *connected = wl_display_connect_to_fd(*descriptor);
    if (!connected)
        return unreachable(std::strerror(errno));
    return std::shared_ptr<WaylandConnection>(new WaylandConnection(connected, patience));
}

WaylandConnection::WaylandConnection(wl_display *display, std::chrono::milliseconds patience)
    : m_display(display), m_patience(patience)
{}

WaylandConnection::~WaylandConnection()
{
    wl_display_disconnect(m_display);
}

Error WaylandConnection::brokenError() const
{
    if (m_state == State::Silent)
        return faultError(Fault::TimedOut, QStringLiteral("Wayland compositor"));
    return faultError(Fault::NoWaylandDisplay, QStringLiteral("the connection was lost"));
}

bool WaylandConnection::waitUntil(const std::function<bool()> &isMet, std::chrono::milliseconds atMost)
{
    const auto deadline = std::chrono::steady_clock::now() + atMost;
    while (!isBroken()) {
        if (wl_display_dispatch_pending(m_display) < 0)
            return lost();
        if (isMet())
            return true;
        if (!readEvents(deadline))
            return false;
    }
    return false;
}

bool WaylandConnection::readEvents(std::chrono::steady_clock::time_point deadline)
{
    if (wl_display_prepare_read(m_display) != 0)
        return true; // there are events to be handled first
    auto cancel = qScopeGuard([this] { wl_display_cancel_read(m_display); });
    const bool isSent = wl_display_flush(m_display) >= 0;
    if (!isSent && errno != EAGAIN)
        return lost();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd waiting{wl_display_get_fd(m_display), short(isSent ? POLLIN : POLLIN | POLLOUT), 0};
    const int ready = ::poll(&waiting, 1, int(std::max<std::int64_t>(left.count(), 0)));
    if (ready < 0 && errno == EINTR)
        return true;
    if (ready <= 0)
        return false;
    if (waiting.revents == POLLOUT)
        return true;
    cancel.dismiss(); // reading ends the preparation, also when it fails
    return wl_display_read_events(m_display) >= 0 || lost();
}

Result<> WaylandConnection::roundTrip()
{
    bool isDone = false;
    const wl_callback_listener listener{
        .done = [](void *done, wl_callback *, std::uint32_t) { *static_cast<bool *>(done) = true; }};
    const WaylandHandle<wl_callback> callback(isBroken() ? nullptr : wl_display_sync(m_display));
    if (!callback)
        return std::unexpected(brokenError());
    wl_callback_add_listener(callback.get(), &listener, &isDone);
    if (waitUntil([&isDone] { return isDone; }, m_patience))
        return {};
    if (!isBroken())
        giveUp();
    return std::unexpected(brokenError());
}

void WaylandConnection::dispatchEvents()
{
    waitUntil([] { return false; }, std::chrono::milliseconds(0));
}

bool WaylandConnection::lost()
{
    m_state = State::Lost;
    return false;
}

} // namespace ostrel
