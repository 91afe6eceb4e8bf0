#include "platform/portal/PortalDisplaySource.h"

#include "base/Fault.h"
#include "base/Log.h"
#include "capture/CaptureError.h"
#include "platform/portal/PictureCover.h"
#include "platform/portal/PortalCast.h"
#include "platform/portal/PortalDisplays.h"
#include "platform/portal/PortalMonitors.h"
#include "platform/portal/PortalOffer.h"
#include "platform/portal/PortalStream.h"
#include "platform/portal/ScreenCastPortal.h"

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace ostrel {

PortalDisplaySource::PortalDisplaySource(std::shared_ptr<ScreenCastPortal> portal, FindPrivatePlaces findPrivatePlaces)
    : m_portal(std::move(portal)), m_findPrivatePlaces(std::move(findPrivatePlaces))
{}

PortalDisplaySource::~PortalDisplaySource() = default;

Result<> PortalDisplaySource::readDisplays()
{
    m_cast.reset(); // one that was lost is not to be kept by us
    auto cast = m_portal->open(ScreenCastPortal::Asker::Program);
    if (!cast)
        return std::unexpected(cast.error());
    m_cast = *std::move(cast);
    m_displays = std::make_unique<PortalDisplays>(m_cast->displays());
    m_comparedMonitors.clear();
    m_haveDisplaysChanged = false;
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

bool PortalDisplaySource::haveDisplaysChanged()
{
    const PortalSeams &seams = m_portal->seams();
    const QStringList monitors = m_cast ? seams.compositorsMonitors() : QStringList();
    if (monitors.isEmpty())
        return false;
    if (monitors == m_comparedMonitors)
        return m_haveDisplaysChanged;
    using Change = ScreenCastPortal::MonitorChange;
    const ToldMonitors now = readMonitors(seams);
    const Change change = m_portal->compareMonitors(now);
    if (change == Change::Untold)
        return false;
    m_comparedMonitors = monitors;
    m_haveDisplaysChanged = change == Change::Granted;
    if (change == Change::Ungranted)
        qCWarning(logPlatform, "the monitors have changed, and only those that you have shared are recorded; %s",
                  now.areTheShells ? "the next recording asks about all of them, if that was not answered before"
                                   : "\"ostrel permissions allow screenRecording\" asks about all of them");
    return m_haveDisplaysChanged;
}

bool PortalDisplaySource::wouldAskAgain()
{
    return !m_portal->opensWithoutQuestion(readMonitors(m_portal->seams()));
}

bool PortalDisplaySource::wouldAskUser()
{
    return readPortalOffer(m_portal->seams()) && m_portal->wouldAsk(readMonitors(m_portal->seams()));
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
                                          m_portal->seams(), use(), makeCover(filter, *display));
}

std::shared_ptr<PictureCover> PortalDisplaySource::makeCover(const DisplayContentFilter &filter,
                                                             const PortalDisplay &display)
{
    if (!m_findPrivatePlaces)
        return nullptr;
    std::erase_if(m_covers, [](const auto &cover) { return cover.expired(); });
    const QSize picture(int(display.display.width), int(display.display.height));
    auto cover = std::make_shared<PictureCover>(
        m_findPrivatePlaces, filter.mode.excludedProcessIDs + QList<qint32>{::getpid()}, display.monitor, picture);
    m_covers.push_back(cover);
    return cover;
}

bool PortalDisplaySource::leavesOutPrivateWindows() const
{
    // Without streams it is said of those to come.
    bool isTold = m_findPrivatePlaces && m_findPrivatePlaces({});
    std::vector<std::shared_ptr<PictureCover>> covers;
    for (const auto &each : m_covers) {
        if (auto cover = each.lock()) {
            isTold = isTold && cover->isTold();
            covers.push_back(std::move(cover));
        }
    }
    const bool isReliedOn = isTold || maySoonBeTold(covers.empty());
    if (isTold)
        m_untoldSince.reset();
    for (const auto &cover : covers)
        cover->relyOn(isReliedOn);
    return isReliedOn;
}

bool PortalDisplaySource::maySoonBeTold(bool isBeginning) const
{
    if (!m_findPrivatePlaces)
        return false;
    const PortalSeams &seams = m_portal->seams();
    const auto now = seams.monotonicTime();
    if (isBeginning || !m_untoldSince)
        m_untoldSince = now;
    return now - *m_untoldSince < seams.placesPatience;
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
