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

/// xcb ends the connection of whoever speaks to an extension that the server lacks.
bool hasRandR(const X11Connection &connection)
{
    const auto *extension = xcb_get_extension_data(connection.get(), &xcb_randr_id);
    return extension && extension->present;
}

std::unique_ptr<X11Grabber> makeGrabber(const std::shared_ptr<X11Connection> &connection, QSize size,
                                        X11PixelFormat format)
{
    if (auto shared = makeSharedMemoryGrabber(connection, size, format))
        return shared;
    return makeWireGrabber(connection, size);
}

} // namespace

Result<std::unique_ptr<X11Screenshotter>> X11Screenshotter::open(std::shared_ptr<X11Connection> connection,
                                                                 quint32 displayId, bool showsCursor)
{
    const auto monitor = findMonitor(*connection, displayId, QString::number(displayId));
    if (!monitor)
        return std::unexpected(monitor.error());
    const auto format = readPixelFormat(*connection);
    if (!format)
        return std::unexpected(format.error());
    return std::unique_ptr<X11Screenshotter>(
        new X11Screenshotter(std::move(connection), *monitor, *format, showsCursor));
}

X11Screenshotter::X11Screenshotter(std::shared_ptr<X11Connection> connection, X11Monitor monitor, X11PixelFormat format,
                                   bool showsCursor)
    : m_connection(std::move(connection)), m_monitor(std::move(monitor)), m_format(format),
      m_hasRandR(hasRandR(*m_connection)), m_grabber(makeGrabber(m_connection, m_monitor.pixels.size(), m_format))
{
    if (showsCursor)
        m_cursor.emplace(m_connection);
}

X11Screenshotter::~X11Screenshotter() = default;

Result<std::optional<FrameView>> X11Screenshotter::capture()
{
    constexpr int maxAttempts = 3;
    m_connection->discardEvents();
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        const Requests requests = send();
        Arrangement arrangement = collectArrangement(requests);
        if (m_arrangement == arrangement) {
            const auto picture = collectPicture(requests);
            if (!picture)
                return std::unexpected(picture.error());
            return *picture;
        }
        discardPicture(requests);
        m_arrangement.reset();
        if (const auto found = findMonitorAgain(); !found)
            return std::unexpected(found.error());
        m_arrangement = std::move(arrangement);
    }
    return std::unexpected(faultError(Fault::PictureRefused, QStringLiteral("the monitors keep moving")));
}

X11Screenshotter::Requests X11Screenshotter::send()
{
    Requests requests;
    if (m_hasRandR) {
        constexpr uint8_t activeOnly = 1;
        requests.monitors = xcb_randr_get_monitors(m_connection->get(), m_connection->root(), activeOnly);
    }
    if (m_cursor)
        requests.cursor = m_cursor->request();
    m_grabber->request(m_monitor.pixels.topLeft());
    return requests;
}

X11Screenshotter::Arrangement X11Screenshotter::collectArrangement(const Requests &requests) const
{
    if (!requests.monitors)
        return {};
    const auto answer = m_connection->reply<xcb_randr_get_monitors_reply>(*requests.monitors);
    if (!answer)
        return {};
    // What follows the fixed part, which holds a time stamp that changes for no reason of ours.
    const auto *monitors = reinterpret_cast<const std::uint8_t *>(answer.get() + 1);
    return {monitors, monitors + std::size_t(answer->length) * 4};
}

Result<FrameView> X11Screenshotter::collectPicture(const Requests &requests)
{
    const auto stride = std::ptrdiff_t(m_format.stride(m_monitor.pixels.width()));
    const auto pixels = m_grabber->collect();
    if (!pixels) {
        if (m_cursor)
            m_cursor->discard(requests.cursor);
        return std::unexpected(pixels.error());
    }
    if (m_cursor)
        m_cursor->draw(requests.cursor, *pixels, stride, m_monitor.pixels);
    return FrameView{
        .pixels = *pixels,
        .width = m_monitor.pixels.width(),
        .height = m_monitor.pixels.height(),
        .stride = stride,
    };
}

void X11Screenshotter::discardPicture(const Requests &requests)
{
    if (m_cursor)
        m_cursor->discard(requests.cursor);
    m_grabber->discard();
}

Result<> X11Screenshotter::findMonitorAgain()
{
    auto monitor = findMonitor(*m_connection, m_monitor.displayId, m_monitor.name);
    if (!monitor)
        return std::unexpected(monitor.error());
    if (monitor->pixels.size() != m_monitor.pixels.size())
        return std::unexpected(faultError(Fault::DisplayResized, m_monitor.name));
    m_monitor = std::move(*monitor);
    return {};
}

} // namespace ostrel
