#include "platform/portal/PortalDisplaySource.h"

#include "base/Fault.h"
#include "capture/CaptureError.h"
#include "platform/portal/PortalCast.h"
#include "platform/portal/PortalDisplays.h"
#include "platform/portal/PortalOffer.h"
#include "platform/portal/PortalStream.h"
#include "platform/portal/ScreenCastPortal.h"

#include <algorithm>
#include <utility>

namespace ostrel {

PortalDisplaySource::PortalDisplaySource(std::shared_ptr<ScreenCastPortal> portal) : m_portal(std::move(portal)) {}

PortalDisplaySource::~PortalDisplaySource() = default;

Result<> PortalDisplaySource::readDisplays()
{
    m_cast.reset(); // one that was lost is not to be kept by us
    auto cast = m_portal->open(ScreenCastPortal::Asker::Program);
    if (!cast)
        return std::unexpected(cast.error());
    m_cast = *std::move(cast);
    m_displays = std::make_unique<PortalDisplays>(m_cast->displays());
    return {};
}

Result<ShareableContent> PortalDisplaySource::shareableContent()
{
    if (const auto read = readDisplays(); !read)
        return std::unexpected(read.error());
    ShareableContent content;
    content.mainDisplayId = m_displays->mainDisplayId;
    for (const PortalDisplay &each : m_displays->displays)
        content.displays.append(each.display);
    return content;
}

bool PortalDisplaySource::wouldAskUser()
{
    return m_portal->wouldAsk() && readPortalOffer(m_portal->seams());
}

void PortalDisplaySource::interruptWaiting()
{
    m_portal->interrupt();
}

Result<std::unique_ptr<DisplayScreenshotter>>
PortalDisplaySource::makeScreenshotter(const DisplayContentFilter & /*filter*/,
                                       const DisplayCaptureConfiguration & /*configuration*/)
{
    return std::unexpected(captureError(CaptureErrorCode::NoImage));
}

Result<std::unique_ptr<DisplayStream>> PortalDisplaySource::makeStream(const DisplayContentFilter &filter,
                                                                       const DisplayCaptureConfiguration &configuration,
                                                                       StreamDelegate delegate,
                                                                       std::function<void(std::function<void()>)> post)
{
    // Gone when the streams before this one have failed.
    if (!m_cast) {
        if (const auto read = readDisplays(); !read)
            return std::unexpected(read.error());
    }
    const auto &displays = m_displays->displays;
    const auto display = std::ranges::find_if(
        displays, [&](const PortalDisplay &each) { return each.display.displayId == filter.displayId; });
    if (display == displays.end())
        return std::unexpected(faultError(Fault::DisplayGone, QString::number(filter.displayId)));
    return std::make_unique<PortalStream>(m_cast, *display, configuration, std::move(delegate), std::move(post),
                                          m_portal->seams(), use());
}

std::shared_ptr<void> PortalDisplaySource::use()
{
    auto use = m_use.lock();
    if (!use) {
        use = std::shared_ptr<void>(this, [](void *source) {
            auto *self = static_cast<PortalDisplaySource *>(source);
            self->m_cast.reset();
            self->m_portal->releaseUnused();
        });
        m_use = use;
    }
    return use;
}

} // namespace ostrel
