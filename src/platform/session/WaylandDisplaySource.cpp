#include "platform/session/WaylandDisplaySource.h"

#include "base/Fault.h"

#include <utility>

namespace ostrel {

namespace {

/// Whether the compositor gives still pictures, if only with an error.
bool isOffered(const Result<ShareableContent> &content)
{
    return content || !isFault(content.error(), Fault::NoScreencopy);
}

} // namespace

WaylandDisplaySource::WaylandDisplaySource(std::unique_ptr<DisplaySource> screenshots,
                                           std::unique_ptr<DisplaySource> streams)
    : m_screenshots(std::move(screenshots)), m_streams(std::move(streams)), m_chosen(m_screenshots.get())
{}

Result<ShareableContent> WaylandDisplaySource::shareableContent()
{
    auto content = m_screenshots->shareableContent();
    const bool byScreenshots = isOffered(content);
    m_chosen = byScreenshots ? m_screenshots.get() : m_streams.get();
    return byScreenshots ? content : m_streams->shareableContent();
}

bool WaylandDisplaySource::wouldAskUser()
{
    return !isOffered(m_screenshots->shareableContent()) && m_streams->wouldAskUser();
}

void WaylandDisplaySource::interruptWaiting()
{
    m_screenshots->interruptWaiting();
    m_streams->interruptWaiting();
}

Result<std::unique_ptr<DisplayScreenshotter>>
WaylandDisplaySource::makeScreenshotter(const DisplayContentFilter &filter,
                                        const DisplayCaptureConfiguration &configuration)
{
    return m_chosen->makeScreenshotter(filter, configuration);
}

Result<std::unique_ptr<DisplayStream>>
WaylandDisplaySource::makeStream(const DisplayContentFilter &filter, const DisplayCaptureConfiguration &configuration,
                                 StreamDelegate delegate, std::function<void(std::function<void()>)> post)
{
    return m_chosen->makeStream(filter, configuration, std::move(delegate), std::move(post));
}

WaylandScreenCaptureAccess::WaylandScreenCaptureAccess(std::unique_ptr<ScreenCaptureAccess> compositor,
                                                       std::unique_ptr<ScreenCaptureAccess> portal)
    : m_compositor(std::move(compositor)), m_portal(std::move(portal))
{}

bool WaylandScreenCaptureAccess::preflight()
{
    return m_compositor->preflight() || m_portal->preflight();
}

bool WaylandScreenCaptureAccess::request()
{
    return m_compositor->request() || m_portal->request();
}

} // namespace ostrel
