#pragma once

#include "capture/DisplaySource.h"
#include "platform/x11/base/X11Monitors.h"
#include "platform/x11/capture/X11CaptureSeams.h"
#include "platform/x11/capture/X11MonitorWatch.h"
#include "platform/x11/capture/X11Picture.h"
#include "platform/x11/capture/X11PrivateWindows.h"
#include "platform/x11/capture/X11WindowComposer.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <set>

namespace ostrel {

class X11Connection;

/// Takes pictures of one monitor: its part of the root window, with the cursor drawn over it. No picture shows a
/// private window, also not one that appears while it is taken: what was in doubt is taken again. As long as such
/// windows are on the screen the pictures are composed of the others; where the server can't do that, their places are
/// black. A monitor that moves is followed; one that changes its size or goes ends in an error at every further
/// picture.
class X11Screenshotter final : public DisplayScreenshotter
{
public:
    /// @return Fault::NoXDisplay, TimedOut, DisplayGone, ScreenFormatUnsupported
    static Result<std::unique_ptr<X11Screenshotter>> open(std::shared_ptr<X11Connection> connection,
                                                          std::shared_ptr<X11PrivateWindows> privateWindows,
                                                          quint32 displayId, bool showsCursor,
                                                          const X11CaptureSeams &seams);
    ~X11Screenshotter() override;

    /// No round trip where nothing has changed; one for each of the pointer, the changes and their rows, where those
    /// have. Never empty. The view tells the changed rows, unless all of them have been fetched. A frozen server is
    /// noticed by the next question, after `X11Cursor::longestTrust` or `X11Picture::auditInterval` at the latest.
    /// @return Fault::NoXDisplay, TimedOut, DisplayGone, DisplayResized, PictureRefused
    Result<std::optional<FrameView>> capture() override;

private:
    using Watch = std::unique_ptr<X11MonitorWatch>;

    X11Screenshotter(std::shared_ptr<X11Connection> connection, Watch watch,
                     std::shared_ptr<X11PrivateWindows> privateWindows, X11Monitor monitor, X11Picture picture,
                     std::function<std::chrono::milliseconds()> monotonicTime);

    using Windows = std::set<xcb_window_t>;

    Result<> findMonitorAgain();
    Result<FrameView> takePicture();
    Result<FrameView> takeWithout(const Windows &suspects);
    Result<FrameView> takeComposed(const Windows &suspects);
    Result<FrameView> takeCovered(const Windows &suspects);
    bool isUndoubted() const;

    const std::shared_ptr<X11Connection> m_connection;
    const Watch m_watch;
    const std::shared_ptr<X11PrivateWindows> m_privateWindows;
    const std::function<std::chrono::milliseconds()> m_monotonicTime;
    std::unique_ptr<X11WindowComposer> m_composer; ///< while there is something to be left out
    X11Monitor m_monitor;
    X11Picture m_picture;
    bool m_isPlaced = false; ///< `m_monitor` has been read, and nothing was told after that
};

} // namespace ostrel
