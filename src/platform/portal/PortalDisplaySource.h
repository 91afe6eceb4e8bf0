#pragma once

#include "capture/DisplaySource.h"
#include "platform/portal/PrivatePlaces.h"

#include <QStringList>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace ostrel {

class PictureCover;
class PortalCast;
class ScreenCastPortal;
struct PortalDisplay;
struct PortalDisplays;

/// The monitors that the user lets us see through the desktop's portal, captured by streams. It is asked for them, and
/// so may the user be, when the list of displays is read; the desktop shows that it is being seen from then on, until
/// the last stream has stopped.
///
/// Whole monitors are seen, with all windows on them. Where private windows and those of the content filter's processes
/// are, pictures are black, as far as somebody tells where those are.
class PortalDisplaySource final : public DisplaySource
{
public:
    /// @param findPrivatePlaces empty where nobody ever knows: then every window is in the pictures
    explicit PortalDisplaySource(std::shared_ptr<ScreenCastPortal> portal, FindPrivatePlaces findPrivatePlaces = {});
    ~PortalDisplaySource() override;

    CaptureMode captureMode() const override { return CaptureMode::Streams; }

    /// May block for as long as the user thinks; `interruptWaiting` ends that. Nobody tells of applications.
    /// @return Fault::NoScreenPortal, ScreenCaptureDeclined, ScreenSharingEnded, ScreenQuestionUnanswered,
    ///         PictureRefused, PictureStreamEnded, TimedOut, Cancelled
    Result<ShareableContent> shareableContent() override;
    /// Other monitors than those that the user was asked about count only where what was granted before shows them
    /// without a question. Else the log says what is missing.
    bool haveDisplaysChanged() override;
    bool wouldAskAgain() override;
    bool wouldAskUser() override;
    void interruptWaiting() override;
    /// Whether all streams can do so, or may within seconds. Those that can't, after it was said that they can, give no
    /// picture until it is asked again.
    bool leavesOutPrivateWindows() const override;

    /// There are no still pictures in this mode: always CaptureErrorCode::NoImage.
    Result<std::unique_ptr<DisplayScreenshotter>>
    makeScreenshotter(const DisplayContentFilter &filter, const DisplayCaptureConfiguration &configuration) override;

    /// @return the errors of `shareableContent`, and Fault::DisplayGone when there is no such display (any more)
    Result<std::unique_ptr<DisplayStream>> makeStream(const DisplayContentFilter &filter,
                                                      const DisplayCaptureConfiguration &configuration,
                                                      StreamDelegate delegate,
                                                      std::function<void(std::function<void()>)> post) override;

private:
    Result<> readDisplays();
    std::shared_ptr<void> use();
    /// @param isBeginning nothing is being captured yet
    bool maySoonBeTold(bool isBeginning) const;
    std::shared_ptr<PictureCover> makeCover(const DisplayContentFilter &filter, const PortalDisplay &display);

    const std::shared_ptr<ScreenCastPortal> m_portal;
    const FindPrivatePlaces m_findPrivatePlaces;
    std::vector<std::weak_ptr<PictureCover>> m_covers; ///< of the streams
    mutable std::optional<std::chrono::milliseconds> m_untoldSince;
    std::shared_ptr<PortalCast> m_cast; ///< from the reading of displays until the last stream has stopped
    std::unique_ptr<PortalDisplays> m_displays;
    QStringList m_comparedMonitors; ///< as the compositor has told them when they were last compared
    bool m_haveDisplaysChanged = false;
    std::weak_ptr<void> m_use; ///< held by the streams
};

} // namespace ostrel
