#pragma once

#include "capture/DisplaySource.h"
#include "platform/x11/capture/X11CaptureSeams.h"

#include <QByteArray>
#include <memory>

namespace ostrel {

class X11Connection;

/// The monitors of an X screen, captured by screenshots of the root window. Connects at first use, and again after the
/// server has gone or was silent for too long; screenshotters of the lost connection keep failing.
///
/// The content filter is accepted and has no effect yet: every window is in the picture.
class X11DisplaySource final : public DisplaySource
{
public:
    /// The display that $DISPLAY names at first use.
    X11DisplaySource();
    /// @param display as in $DISPLAY
    explicit X11DisplaySource(QByteArray display, X11CaptureSeams seams = {});
    ~X11DisplaySource() override;

    CaptureMode captureMode() const override { return CaptureMode::Screenshots; }

    /// The monitors in the server's order, and the applications whose windows tell their process.
    /// @return Fault::NoXDisplay, Fault::TimedOut
    Result<ShareableContent> shareableContent() override;

    /// @return Fault::NoXDisplay; Fault::TimedOut; Fault::DisplayGone when there is no such monitor (any more);
    ///         Fault::ScreenFormatUnsupported for anything but 24 or 32 bits of colour in 32 bits, blue first
    Result<std::unique_ptr<DisplayScreenshotter>>
    makeScreenshotter(const DisplayContentFilter &filter, const DisplayCaptureConfiguration &configuration) override;

    /// There are no streams in this mode: always CaptureErrorCode::NoStream.
    Result<std::unique_ptr<DisplayStream>> makeStream(const DisplayContentFilter &filter,
                                                      const DisplayCaptureConfiguration &configuration,
                                                      StreamDelegate delegate,
                                                      std::function<void(std::function<void()>)> post) override;

private:
    Result<std::shared_ptr<X11Connection>> connection();

    const QByteArray m_display;
    const X11CaptureSeams m_seams;
    std::shared_ptr<X11Connection> m_connection;
};

} // namespace ostrel
