#pragma once

#include "capture/DisplaySource.h"
#include "capture/ScreenCaptureAccess.h"

#include <memory>

namespace ostrel {

/// The displays of a Wayland session, by the means that its compositor offers: still pictures where it gives them,
/// which nobody needs to be asked for, and otherwise the streams of the desktop's portal. Which it is, is found out at
/// each reading of the displays, for compositors come and go.
class WaylandDisplaySource final : public DisplaySource
{
public:
    /// @param screenshots says Fault::NoScreencopy where the compositor gives none
    WaylandDisplaySource(std::unique_ptr<DisplaySource> screenshots, std::unique_ptr<DisplaySource> streams);

    CaptureMode captureMode() const override { return m_chosen->captureMode(); }
    /// @return the errors of the means that is used
    Result<ShareableContent> shareableContent() override;
    bool haveDisplaysChanged() override { return m_chosen->haveDisplaysChanged(); }
    bool wouldAskAgain() override { return m_chosen->wouldAskAgain(); }
    bool wouldAskUser() override;
    void interruptWaiting() override;
    bool leavesOutPrivateWindows() const override { return m_chosen->leavesOutPrivateWindows(); }
    Result<std::unique_ptr<DisplayScreenshotter>>
    makeScreenshotter(const DisplayContentFilter &filter, const DisplayCaptureConfiguration &configuration) override;
    Result<std::unique_ptr<DisplayStream>> makeStream(const DisplayContentFilter &filter,
                                                      const DisplayCaptureConfiguration &configuration,
                                                      StreamDelegate delegate,
                                                      std::function<void(std::function<void()>)> post) override;

private:
    const std::unique_ptr<DisplaySource> m_screenshots;
    const std::unique_ptr<DisplaySource> m_streams;
    DisplaySource *m_chosen; ///< by the last reading of the displays
};

/// Granted by the compositor, or else by the user through the portal.
class WaylandScreenCaptureAccess final : public ScreenCaptureAccess
{
public:
    WaylandScreenCaptureAccess(std::unique_ptr<ScreenCaptureAccess> compositor,
                               std::unique_ptr<ScreenCaptureAccess> portal);

    bool preflight() override;
    /// Asks the user only where the compositor doesn't grant it.
    bool request() override;

private:
    const std::unique_ptr<ScreenCaptureAccess> m_compositor;
    const std::unique_ptr<ScreenCaptureAccess> m_portal;
};

} // namespace ostrel
