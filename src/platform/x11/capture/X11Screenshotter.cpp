#include "platform/x11/capture/X11Screenshotter.h"

#include "base/Fault.h"
#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11Grabber.h"

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

Result<X11Monitor> findMonitor(X11Connection &connection, quint32 displayId, const QString &name)
{
    const auto layout = readMonitors(connection);
    if (!layout)
        return std::unexpected(layout.error());
    const auto found = std::find_if(layout->monitors.begin(), layout->monitors.end(),
                                    [displayId](const X11Monitor &monitor) { return monitor.displayId == displayId; });
    if (found == layout->monitors.end())
        return std::unexpected(faultError(Fault::DisplayGone, name));
    return *found;
}

std::unique_ptr<X11Grabber> makeGrabber(const std::shared_ptr<X11Connection> &connection, QSize size,
                                        X11PixelFormat format)
{
    if (auto shared = makeSharedMemoryGrabber(connection, size, format))
        return shared;
    return makeWireGrabber(connection, size, format);
}

} // namespace

Result<std::unique_ptr<X11Screenshotter>> X11Screenshotter::open(std::shared_ptr<X11Connection> connection,
                                                                 std::shared_ptr<X11PrivateWindows> privateWindows,
                                                                 quint32 displayId, bool showsCursor,
                                                                 const X11CaptureSeams &seams)
{
    auto watch = std::make_unique<X11MonitorWatch>(connection);
    const auto monitor = findMonitor(*connection, displayId, QString::number(displayId));
    if (!monitor)
        return std::unexpected(monitor.error());
    const auto format = readPixelFormat(*connection);
    if (!format)
        return std::unexpected(format.error());
    X11Picture::Means means{
        .grabber = makeGrabber(connection, monitor->pixels.size(), *format),
        .tracker = seams.makeTracker(connection),
        .cursor =
            showsCursor ? std::make_unique<X11Cursor>(connection, seams.monotonicTime, seams.pointerRest) : nullptr,
        .monotonicTime = seams.monotonicTime};
    X11Picture picture(std::move(means), monitor->name, monitor->pixels);
    return std::unique_ptr<X11Screenshotter>(new X11Screenshotter(std::move(connection), std::move(watch),
                                                                  std::move(privateWindows), *monitor,
                                                                  std::move(picture), seams.monotonicTime));
}

X11Screenshotter::X11Screenshotter(std::shared_ptr<X11Connection> connection, Watch watch,
                                   std::shared_ptr<X11PrivateWindows> privateWindows, X11Monitor monitor,
                                   X11Picture picture, std::function<std::chrono::milliseconds()> monotonicTime)
    : m_connection(std::move(connection)), m_watch(std::move(watch)), m_privateWindows(std::move(privateWindows)),
      m_monotonicTime(std::move(monotonicTime)), m_monitor(std::move(monitor)), m_picture(std::move(picture))
{}

X11Screenshotter::~X11Screenshotter() = default;

Result<std::optional<FrameView>> X11Screenshotter::capture()
{
    constexpr int maxAttempts = 3;
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        if (const auto found = findMonitorAgain(); !found)
            return std::unexpected(found.error());
        const auto picture = takePicture();
        // Where nothing was asked, only this tells that the server has gone.
        m_connection->dispatchEvents();
        if (m_connection->isBroken())
            return std::unexpected(m_connection->brokenError());
        if (m_watch->hasNews()) {
            m_picture.discardView();
            continue;
        }
        if (!picture)
            return std::unexpected(picture.error());
        return *picture;
    }
    return std::unexpected(faultError(Fault::PictureRefused, QStringLiteral("the monitors keep moving")));
}

/// Whatever becomes private, or is mapped, while a picture is taken may be in it. Windows that change their names all
/// the time are left out in the end, whatever they are.
Result<FrameView> X11Screenshotter::takePicture()
{
    constexpr int patientAttempts = 2;
    constexpr int maxAttempts = 10;
    Windows suspects;
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        m_privateWindows->update();
        const auto picture = takeWithout(suspects);
        m_connection->dispatchEvents();
        if (!picture)
            return std::unexpected(picture.error());
        if (isUndoubted())
            return *picture;
        m_picture.discardView();
        if (attempt >= patientAttempts)
            suspects.insert(m_privateWindows->doubts().begin(), m_privateWindows->doubts().end());
    }
    return std::unexpected(faultError(Fault::PictureRefused, QStringLiteral("the windows keep changing")));
}

Result<FrameView> X11Screenshotter::takeWithout(const Windows &suspects)
{
    if (m_privateWindows->privateWindows().empty() && suspects.empty()) {
        m_composer.reset();
        return m_picture.take();
    }
    if (X11WindowComposer::isPossible(*m_connection))
        return takeComposed(suspects);
    return takeCovered(suspects);
}

Result<FrameView> X11Screenshotter::takeComposed(const Windows &suspects)
{
    if (!m_composer)
        m_composer = X11WindowComposer::make(m_connection, m_monitor.pixels.size(), *m_privateWindows, m_monotonicTime);
    m_composer->compose(m_monitor.pixels.topLeft(), suspects);
    return m_picture.takeFrom({.source = m_composer->pixmap(), .corner = {}, .covered = {}});
}

Result<FrameView> X11Screenshotter::takeCovered(const Windows &suspects)
{
    X11Picture::Substitute screen{.source = m_connection->root(), .corner = m_monitor.pixels.topLeft(), .covered = {}};
    for (const auto &[window, top] : m_privateWindows->windows()) {
        if (top.isPrivate || suspects.contains(window))
            screen.covered.push_back(top.outer);
    }
    return m_picture.takeFrom(screen);
}

/// What was not drawn is not in the picture, whatever has become of it. A picture of the screen shows everything.
bool X11Screenshotter::isUndoubted() const
{
    const auto isHarmless = [this](xcb_window_t window) { return m_composer && !m_composer->drawn().contains(window); };
    return std::ranges::all_of(m_privateWindows->doubts(), isHarmless);
}

/// Asks only after something was told of the monitors, and until they were read.
Result<> X11Screenshotter::findMonitorAgain()
{
    if (m_watch->takeNews())
        m_isPlaced = false;
    if (m_isPlaced)
        return {};
    auto monitor = findMonitor(*m_connection, m_monitor.displayId, m_monitor.name);
    if (!monitor)
        return std::unexpected(monitor.error());
    if (monitor->pixels.size() != m_monitor.pixels.size())
        return std::unexpected(faultError(Fault::DisplayResized, m_monitor.name));
    m_monitor = std::move(*monitor);
    m_picture.moveTo(m_monitor.pixels.topLeft());
    m_isPlaced = true;
    return {};
}

} // namespace ostrel
