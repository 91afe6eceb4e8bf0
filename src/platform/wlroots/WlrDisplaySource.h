#pragma once

#include "capture/DisplaySource.h"
#include "platform/wlroots/PrivateAreas.h"
#include "platform/wlroots/WlrCaptureSeams.h"

#include <QByteArray>
#include <memory>

namespace ostrel {

class PrivateCover;
class WaylandOutputs;

/// The outputs of a Wayland compositor that speaks wlr-screencopy, captured by screenshots. Connects at first use, and
/// again after the compositor has gone or was silent for too long; screenshotters of the lost connection keep failing.
///
/// The protocol knows whole outputs only. Where private windows and those of the content filter's processes are, as far
/// as it is known, pictures are black.
class WlrDisplaySource final : public DisplaySource
{
public:
    /// @param display as in $WAYLAND_DISPLAY; empty means that $WAYLAND_DISPLAY decides, at each connection
    /// @param privateAreas empty where nobody knows: then every window is in the pictures
    explicit WlrDisplaySource(QByteArray display = {}, WlrCaptureSeams seams = {}, PrivateAreas privateAreas = {});
    ~WlrDisplaySource() override;

    CaptureMode captureMode() const override { return CaptureMode::Screenshots; }

    /// The outputs that are switched on: identified by the connector's name, bounds in logical pixels. Nobody tells of
    /// applications.
    /// @return Fault::NoWaylandDisplay, Fault::TimedOut; Fault::NoScreencopy when the compositor does not offer it
    Result<ShareableContent> shareableContent() override;
    bool haveDisplaysChanged() override;
    bool leavesOutPrivateWindows() const override;

    /// @return the same, and Fault::DisplayGone when there is no such output (any more)
    Result<std::unique_ptr<DisplayScreenshotter>>
    makeScreenshotter(const DisplayContentFilter &filter, const DisplayCaptureConfiguration &configuration) override;

private:
    /// The outputs as they are now.
    Result<std::shared_ptr<WaylandOutputs>> outputs();

    const QByteArray m_display;
    const WlrCaptureSeams m_seams;
    const std::shared_ptr<PrivateCover> m_cover;
    std::shared_ptr<WaylandOutputs> m_outputs;
    ShareableContent m_told; ///< by the last `shareableContent`
};

} // namespace ostrel
