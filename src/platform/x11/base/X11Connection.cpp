#include "platform/x11/base/X11Connection.h"

#include "base/Fault.h"
#include "platform/x11/base/X11Liveness.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <utility>
#include <vector>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/render.h>
#include <xcb/shape.h>
#include <xcb/shm.h>
#include <xcb/sync.h>
#include <xcb/xcbext.h>
#include <xcb/xfixes.h>
#include <xcb/xinput.h>

namespace ostrel {

namespace {

const xcb_screen_t *screenByNumber(xcb_connection_t *connection, int number)
{
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    while (number > 0 && screens.rem > 1) {
        xcb_screen_next(&screens);
        --number;
    }
    return screens.rem > 0 ? screens.data : nullptr;
}

/// What is spoken here; all of them are asked for when the connection is opened.
constexpr std::array extensions{&xcb_randr_id,  &xcb_shm_id,       &xcb_xfixes_id, &xcb_damage_id, &xcb_sync_id,
                                &xcb_render_id, &xcb_composite_id, &xcb_shape_id,  &xcb_input_id};

Error noDisplay(const QByteArray &display)
{
    const QByteArray tried = display.isEmpty() ? qgetenv("DISPLAY") : display;
    const QString detail = tried.isEmpty() ? QStringLiteral("DISPLAY is not set")
                                           : QStringLiteral("DISPLAY is \"%1\"").arg(QString::fromLocal8Bit(tried));
    return faultError(Fault::NoXDisplay, detail);
}

/// Not just "the server", which elsewhere is the observer.
Error timedOut()
{
    return faultError(Fault::TimedOut, QStringLiteral("display server"));
}

/// One thread at a time: the library that looks for the server's secret has a buffer of the process's own.
xcb_connection_t *connect(const QByteArray &display, int *screen)
{
    static std::mutex mutex;
    const std::scoped_lock lock(mutex);
    return xcb_connect(display.isEmpty() ? nullptr : display.constData(), screen);
}

} // namespace

Result<std::unique_ptr<X11Connection>> X11Connection::open(const QByteArray &display,
                                                           std::chrono::milliseconds patience)
{
    if (!isServerAnswering(display, patience))
        return std::unexpected(timedOut());
    int number = 0;
    Handle connection(connect(display, &number));
    if (xcb_connection_has_error(connection.get()))
        return std::unexpected(noDisplay(display));
    const xcb_screen_t *screen = screenByNumber(connection.get(), number);
    if (!screen)
        return std::unexpected(noDisplay(display));
    std::unique_ptr<X11Connection> opened(new X11Connection(std::move(connection), screen, patience));
    if (!opened->learnExtensions())
        return std::unexpected(opened->brokenError());
    return opened;
}

X11Connection::X11Connection(Handle connection, const xcb_screen_t *screen, std::chrono::milliseconds patience)
    : m_connection(std::move(connection)), m_screen(screen), m_patience(patience)
{}

Error X11Connection::brokenError() const
{
    if (m_hasTimedOut)
        return timedOut();
    return faultError(Fault::NoXDisplay, QStringLiteral("the connection to it was lost"));
}

/// `xcb_get_extension_data` waits without end where it doesn't know the answer yet. So it learns all of them here,
/// where an answer to a later question proves that they have come.
bool X11Connection::learnExtensions() const
{
    for (xcb_extension_t *extension : extensions)
        xcb_prefetch_extension_data(get(), extension);
    if (!reply<xcb_get_input_focus_reply>(xcb_get_input_focus(get())))
        return false;
    for (xcb_extension_t *extension : extensions)
        xcb_get_extension_data(get(), extension);
    return !isBroken();
}

X11Connection::Outcome X11Connection::await(unsigned int sequence) const
{
    xcb_flush(get());
    for (;;) {
        void *answer = nullptr;
        xcb_generic_error_t *error = nullptr;
        if (xcb_poll_for_reply(get(), sequence, &answer, &error))
            return {.answer = X11Reply<void>(answer), .error = X11Reply<xcb_generic_error_t>(error)};
        if (waitForServer())
            continue;
        // Whatever comes late finds nobody: the library reads the end of the connection next, and from then on says at
        // once that it is broken.
        m_hasTimedOut = true;
        ::shutdown(xcb_get_file_descriptor(get()), SHUT_RDWR);
    }
}

/// @return false when nothing has come in time
bool X11Connection::waitForServer() const
{
    pollfd descriptor{.fd = xcb_get_file_descriptor(get()), .events = POLLIN, .revents = 0};
    int ready = 0;
    do {
        ready = ::poll(&descriptor, 1, int(m_patience.count()));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

bool X11Connection::check(xcb_void_cookie_t cookie) const
{
    // The library would ask the same, but wait without end.
    return reply<xcb_get_input_focus_reply>(xcb_get_input_focus(get())) && checkAnswered(cookie);
}

bool X11Connection::checkAnswered(xcb_void_cookie_t cookie) const
{
    const X11Reply<xcb_generic_error_t> refusal(xcb_request_check(get(), cookie));
    return !refusal && !isBroken();
}

void X11Connection::internAtoms(std::initializer_list<const char *> names)
{
    std::vector<std::pair<QByteArray, xcb_intern_atom_cookie_t>> requests;
    for (const char *name : names) {
        const QByteArray bytes(name);
        if (!m_atoms.contains(bytes))
            requests.emplace_back(bytes, xcb_intern_atom(get(), 0, uint16_t(bytes.size()), bytes.constData()));
    }
    for (const auto &[name, cookie] : requests) {
        if (const auto answer = reply<xcb_intern_atom_reply>(cookie))
            m_atoms.insert(name, answer->atom);
    }
}

xcb_atom_t X11Connection::atom(const char *name)
{
    if (const auto known = m_atoms.constFind(QByteArray::fromRawData(name, qsizetype(std::strlen(name))));
        known != m_atoms.cend())
        return *known;
    internAtoms({name});
    return m_atoms.value(QByteArray(name), XCB_ATOM_NONE);
}

std::optional<std::uint8_t> X11Connection::firstEventOf(xcb_extension_t &extension) const
{
    const auto *data = xcb_get_extension_data(get(), &extension);
    if (!data || !data->present)
        return std::nullopt;
    return data->first_event;
}

std::optional<std::uint8_t> X11Connection::majorOpcodeOf(xcb_extension_t &extension) const
{
    const auto *data = xcb_get_extension_data(get(), &extension);
    if (!data || !data->present)
        return std::nullopt;
    return data->major_opcode;
}

void X11Connection::selectRootEvents(std::uint32_t mask)
{
    // A client has one mask for each window: a new one replaces it.
    m_rootEvents |= mask;
    xcb_change_window_attributes(get(), root(), XCB_CW_EVENT_MASK, &m_rootEvents);
}

void X11Connection::dispatchEvents() const
{
    while (const X11Reply<xcb_generic_event_t> event{xcb_poll_for_event(get())}) {
        for (const auto &handler : m_handlers)
            handler(*event);
    }
}

X11Subscription::X11Subscription(std::shared_ptr<X11Connection> connection,
                                 std::function<void(const xcb_generic_event_t &)> handler)
    : m_connection(std::move(connection)),
      m_handler(m_connection->m_handlers.insert(m_connection->m_handlers.end(), std::move(handler)))
{}

X11Subscription::~X11Subscription()
{
    m_connection->m_handlers.erase(m_handler);
}

} // namespace ostrel
