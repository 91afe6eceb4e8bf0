#pragma once

#include "capture/DisplaySource.h"

#include <memory>

namespace ostrel {

class PortalCast;
class ScreenCastPortal;
struct PortalDisplays;

/// The monitors that the user lets us see through the desktop's portal, captured by streams. It is asked for them, and
/// so may the user be, when the list of displays is read; the desktop shows that it is being seen from then on, until
/// the last stream has stopped.
///
/// Whole monitors are seen, with all windows on them: nobody can leave out those of the content filter, nor private
/// ones.
class PortalDisplaySource final : public DisplaySource
{
public:
    explicit PortalDisplaySource(std::shared_ptr<ScreenCastPortal> portal);
    ~PortalDisplaySource() override;

    CaptureMode captureMode() const override { return CaptureMode::Streams; }

    /// May block for as long as the user thinks; `interruptWaiting` ends that. Nobody tells of applications.
    /// @return Fault::NoScreenPortal, ScreenCaptureDeclined, ScreenSharingEnded, PictureRefused, PictureStreamEnded,
    ///         TimedOut, Cancelled
    Result<ShareableContent> shareableContent() override;
    bool wouldAskUser() override;
    void interruptWaiting() override;
    bool leavesOutPrivateWindows() const override { return false; }

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

    const std::shared_ptr<ScreenCastPortal> m_portal;
    std::shared_ptr<PortalCast> m_cast; ///< from the reading of displays until the last stream has stopped
    std::unique_ptr<PortalDisplays> m_displays;
    std::weak_ptr<void> m_use; ///< held by the streams
};

} // namespace ostrel
