#include "platform/x11/capture/X11DisplaySource.h"

#include "platform/x11/base/X11Connection.h"
#include "platform/x11/base/X11Monitors.h"
#include "platform/x11/capture/X11Applications.h"
#include "platform/x11/capture/X11MonitorWatch.h"
#include "platform/x11/capture/X11PrivateWindows.h"
#include "platform/x11/capture/X11Screenshotter.h"

#include <unistd.h>
#include <utility>

namespace ostrel {

X11DisplaySource::X11DisplaySource(X11Privacy privacy) : m_privacy(std::move(privacy)) {}

X11DisplaySource::X11DisplaySource(QByteArray display, X11CaptureSeams seams, X11Privacy privacy)
    : m_display(std::move(display)), m_privacy(std::move(privacy)), m_seams(std::move(seams))
{}

X11DisplaySource::~X11DisplaySource() = default;

Result<ShareableContent> X11DisplaySource::shareableContent()
{
    const auto connected = connection();
    if (!connected)
        return std::unexpected(connected.error());
    m_watch->takeNews(); // what is told from here on may be missing in the answer
    const auto layout = readMonitors(**connected);
    if (!layout)
        return std::unexpected(layout.error());
    m_told = displaysOf(*layout);
    m_haveChanged = false;
    return ShareableContent{.displays = m_told.displays,
                            .mainDisplayId = m_told.mainDisplayId,
                            .applications = applicationsWithWindows(**connected)};
}

bool X11DisplaySource::haveDisplaysChanged()
{
    if (!m_watch || m_connection->isBroken())
        return false;
    if (!m_watch->takeNews())
        return m_haveChanged;
    const auto layout = readMonitors(*m_connection);
    m_haveChanged = layout && displaysOf(*layout) != m_told;
    return m_haveChanged;
}

X11DisplaySource::Displays X11DisplaySource::displaysOf(const X11MonitorLayout &layout)
{
    Displays displays;
    for (const X11Monitor &monitor : layout.monitors) {
        displays.displays.append(CapturableDisplay{
            .displayId = monitor.displayId,
            .width = monitor.pixels.width(),
            .height = monitor.pixels.height(),
            .bounds = layout.toDesktop(monitor.pixels),
        });
    }
    if (layout.mainIndex)
        displays.mainDisplayId = layout.monitors[*layout.mainIndex].displayId;
    return displays;
}

Result<std::unique_ptr<DisplayScreenshotter>>
X11DisplaySource::makeScreenshotter(const DisplayContentFilter &filter,
                                    const DisplayCaptureConfiguration &configuration)
{
    const auto connected = connection();
    if (!connected)
        return std::unexpected(connected.error());
    if (!m_privateWindows)
        m_privateWindows = std::make_shared<X11PrivateWindows>(*connected, m_privacy, m_seams.monotonicTime);
    // Our windows come and go, and there may be none yet when the filter is made.
    m_privateWindows->leaveOut(filter.mode.excludedProcessIDs + QList<qint32>{::getpid()});
    auto screenshotter =
        X11Screenshotter::open(*connected, m_privateWindows, filter.displayId, configuration.showsCursor, m_seams);
    if (!screenshotter)
        return std::unexpected(screenshotter.error());
    return std::move(*screenshotter);
}

Result<std::shared_ptr<X11Connection>> X11DisplaySource::connection()
{
    if (m_connection && !m_connection->isBroken())
        return m_connection;
    m_privateWindows.reset();
    m_watch.reset();
    m_connection.reset();
    auto opened = X11Connection::open(m_display, m_seams.patience);
    if (!opened)
        return std::unexpected(opened.error());
    m_connection = std::move(*opened);
    m_watch = std::make_unique<X11MonitorWatch>(m_connection);
    return m_connection;
}

} // namespace ostrel
