#pragma once

#include "capture/DisplaySource.h"
#include "platform/x11/capture/X11CaptureSeams.h"
#include "platform/x11/capture/X11Privacy.h"

#include <QByteArray>
#include <QList>
#include <memory>

namespace ostrel {

class X11Connection;
class X11MonitorWatch;
class X11PrivateWindows;
struct X11MonitorLayout;

/// The monitors of an X screen, captured by screenshots of the root window. Connects at first use, and again after the
/// server has gone or was silent for too long; screenshotters of the lost connection keep failing.
///
/// The windows of the processes that a content filter names, our own and those that the privacy rules exclude are in no
/// picture.
class X11DisplaySource final : public DisplaySource
{
public:
    /// The display that $DISPLAY names at first use.
    explicit X11DisplaySource(X11Privacy privacy = {});
    /// @param display as in $DISPLAY
    explicit X11DisplaySource(QByteArray display, X11CaptureSeams seams = {}, X11Privacy privacy = {});
    ~X11DisplaySource() override;

    CaptureMode captureMode() const override { return CaptureMode::Screenshots; }

    /// The monitors in the server's order, and the applications whose windows tell their process.
    /// @return Fault::NoXDisplay, Fault::TimedOut
    Result<ShareableContent> shareableContent() override;

    /// Reads the monitors only after the server has told that something became of them. False without a connection:
    /// what a picture then fails with says more.
    bool haveDisplaysChanged() override;

    /// @return Fault::NoXDisplay; Fault::TimedOut; Fault::DisplayGone when there is no such monitor (any more);
    ///         Fault::ScreenFormatUnsupported for anything but 24 or 32 bits of colour in 32 bits, blue first
    Result<std::unique_ptr<DisplayScreenshotter>>
    makeScreenshotter(const DisplayContentFilter &filter, const DisplayCaptureConfiguration &configuration) override;

private:
    /// What of the monitors makes a difference to a recording.
    struct Displays {
        QList<CapturableDisplay> displays;
        quint32 mainDisplayId = 0;

        bool operator==(const Displays &) const = default;
    };

    Result<std::shared_ptr<X11Connection>> connection();
    static Displays displaysOf(const X11MonitorLayout &layout);

    const QByteArray m_display;
    const X11Privacy m_privacy;
    const X11CaptureSeams m_seams;
    std::shared_ptr<X11Connection> m_connection;
    std::unique_ptr<X11MonitorWatch> m_watch;            ///< of that connection
    Displays m_told;                                     ///< by the last `shareableContent`
    bool m_haveChanged = false;                          ///< since then, when last looked
    std::shared_ptr<X11PrivateWindows> m_privateWindows; ///< of that connection; from the first screenshotter on
};

} // namespace ostrel
