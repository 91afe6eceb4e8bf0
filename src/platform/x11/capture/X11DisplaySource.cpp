#include "platform/x11/capture/X11DisplaySource.h"

#include "capture/CaptureError.h"
#include "platform/x11/base/X11Connection.h"
#include "platform/x11/base/X11Monitors.h"
#include "platform/x11/capture/X11Applications.h"
#include "platform/x11/capture/X11Screenshotter.h"

#include <utility>

namespace ostrel {

X11DisplaySource::X11DisplaySource() = default;

X11DisplaySource::X11DisplaySource(QByteArray display, X11CaptureSeams seams)
    : m_display(std::move(display)), m_seams(std::move(seams))
{}

X11DisplaySource::~X11DisplaySource() = default;

Result<ShareableContent> X11DisplaySource::shareableContent()
{
    const auto connected = connection();
    if (!connected)
        return std::unexpected(connected.error());
    const auto layout = readMonitors(**connected);
    if (!layout)
        return std::unexpected(layout.error());

    ShareableContent content;
    for (const X11Monitor &monitor : layout->monitors) {
        content.displays.append(CapturableDisplay{
            .displayId = monitor.displayId,
            .width = monitor.pixels.width(),
            .height = monitor.pixels.height(),
            .bounds = layout->toDesktop(monitor.pixels),
        });
    }
    if (layout->mainIndex)
        content.mainDisplayId = layout->monitors[*layout->mainIndex].displayId;
    content.applications = applicationsWithWindows(**connected);
    return content;
}

Result<std::unique_ptr<DisplayScreenshotter>>
X11DisplaySource::makeScreenshotter(const DisplayContentFilter &filter,
                                    const DisplayCaptureConfiguration &configuration)
{
    const auto connected = connection();
    if (!connected)
        return std::unexpected(connected.error());
    auto screenshotter = X11Screenshotter::open(*connected, filter.displayId, configuration.showsCursor, m_seams);
    if (!screenshotter)
        return std::unexpected(screenshotter.error());
    return std::move(*screenshotter);
}

Result<std::unique_ptr<DisplayStream>> X11DisplaySource::makeStream(const DisplayContentFilter &,
                                                                    const DisplayCaptureConfiguration &, StreamDelegate,
                                                                    std::function<void(std::function<void()>)>)
{
    return std::unexpected(captureError(CaptureErrorCode::NoStream));
}

Result<std::shared_ptr<X11Connection>> X11DisplaySource::connection()
{
    if (m_connection && !m_connection->isBroken())
        return m_connection;
    m_connection.reset();
    auto opened = X11Connection::open(m_display, m_seams.patience);
    if (!opened)
        return std::unexpected(opened.error());
    m_connection = std::move(*opened);
    return m_connection;
}

} // namespace ostrel
