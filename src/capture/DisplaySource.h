#pragma once

#include "base/Error.h"
#include "capture/CaptureError.h"
#include "capture/DisplayFilter.h"

#include <QList>
#include <QRectF>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

namespace ostrel {

/// A display that can be captured.
struct CapturableDisplay {
    quint32 displayId = 0; ///< stable over restarts: derived from the connector's name
    qint64 width = 0;      ///< pixels
    qint64 height = 0;
    QRectF bounds; ///< desktop coordinates, origin at the main display's top-left corner, y downwards

    bool operator==(const CapturableDisplay &) const = default;
};

/// What can be captured at this moment.
struct ShareableContent {
    QList<CapturableDisplay> displays; ///< in no particular order
    quint32 mainDisplayId = 0;
    QList<ScreenCaptureApplicationIdentity> applications; ///< those that run and have windows, as far as known
};

/// How one display is captured.
struct DisplayCaptureConfiguration {
    qint64 width = 0; ///< pixels, the display's own
    qint64 height = 0;
    /// Shortest time between two frames, in 600ths of a second: 1200 is 2 s.
    qint64 minimumFrameInterval600 = 0;
    int queueDepth = 3;
    bool showsCursor = true;
    bool capturesAudio = false;
};

/// What one capture of a display contains: all of it, less the windows of these processes.
struct DisplayContentFilter {
    quint32 displayId = 0;
    DisplayFilterMode mode;
};

/// Rows of a picture: begin <= y < end, never empty.
struct RowRange {
    int begin = 0;
    int end = 0;

    bool operator==(const RowRange &) const = default;
};

/// Pixels that belong to somebody else: rows of B, G, R and an unused byte, `stride` bytes apart, top row first.
struct FrameView {
    const std::uint8_t *pixels = nullptr;
    int width = 0;
    int height = 0;
    std::ptrdiff_t stride = 0;
    /// The rows that may differ from the view that the same screenshotter or stream gave before; ascending and apart.
    /// An empty list says that nothing has changed, an absent one that nobody knows. Valid as long as the pixels.
    std::optional<std::span<const RowRange>> changedRows = std::nullopt;
};

/// Takes still pictures of one display. Used on one thread.
class DisplayScreenshotter
{
public:
    virtual ~DisplayScreenshotter() = default;

    /// Takes one picture; blocks until it is there. The view is valid until the next call or destruction.
    /// An empty answer means that the platform gave neither a picture nor a reason.
    virtual Result<std::optional<FrameView>> capture() = 0;
};

enum class StreamOutputKind { Screen, Audio };

/// One delivery of a stream.
struct StreamSample {
    StreamOutputKind kind = StreamOutputKind::Screen;
    bool valid = true;
    /// Valid during the delivery only. Absent when there is none that may be seen at this moment: `deliverAgain` asks.
    std::optional<FrameView> image;
};

/// A running series of pictures of one display. Deliveries come on the thread that the source was told to use.
class DisplayStream
{
public:
    virtual ~DisplayStream() = default;

    virtual Result<> start() = 0;
    /// When it returns, no delivery comes any more.
    virtual void stop() = 0;

    /// Has the newest picture delivered once more, although nothing has changed in it, as soon as the pace allows.
    /// Nothing comes where there was no picture yet. While it runs only, and not from within a delivery.
    virtual void deliverAgain() = 0;

    /// Whether the way by which pictures come is open: all that was asked at earlier calls has been answered. Asks
    /// again, and waits for nothing. A screen that stays still sends no picture, so that no delivery says nothing.
    /// While it runs only, and not from within a delivery.
    virtual bool isAnswering() = 0;
};

enum class CaptureMode { Screenshots, Streams };

/// The displays of a session and the means to capture them. All calls come from one worker thread at a time, which is
/// also where screenshotters and streams made here are used and destroyed.
class DisplaySource
{
public:
    virtual ~DisplaySource() = default;

    /// How displays are captured in this session. Screenshots are the primary means.
    virtual CaptureMode captureMode() const = 0;

    /// Reads the list afresh. An empty list of displays is an answer, not an error.
    virtual Result<ShareableContent> shareableContent() = 0;

    /// Whether the displays, or which one is the main one, differ from the last answer of `shareableContent`, and those
    /// that there are now can be had without asking anybody. Asked before every round of pictures, and every ten
    /// seconds while streams run, so it must cost next to nothing while nothing has happened; false where nobody tells.
    virtual bool haveDisplaysChanged() { return false; }

    /// Whether `shareableContent` would have the desktop ask the user first. Looks, and asks nobody; may take a moment.
    /// A desktop that has forgotten what it granted asks all the same.
    virtual bool wouldAskUser() { return false; }

    /// The same of a capture that runs and would be stopped and started anew, unless it is certain that nobody is
    /// asked.
    virtual bool wouldAskAgain() { return false; }

    /// Where a call under way waits for the user's answer to a question of the desktop's, it waits no longer, and the
    /// question is withdrawn. Any thread.
    virtual void interruptWaiting() {}

    /// Whether its pictures leave out what the privacy rules exclude. Where they don't, none is kept while such a
    /// window is known to be in front. Asked with every context, and it holds until it is asked again; a picture for
    /// which it can't be kept in between is not delivered.
    virtual bool leavesOutPrivateWindows() const { return true; }

    /// Screenshot mode only.
    virtual Result<std::unique_ptr<DisplayScreenshotter>>
    makeScreenshotter(const DisplayContentFilter &filter, const DisplayCaptureConfiguration &configuration) = 0;

    struct StreamDelegate {
        std::function<void(const StreamSample &)> didOutputSample;
        std::function<void(const Error &)> didStopWithError;
    };
    /// Stream mode only; without it CaptureErrorCode::NoStream. `post` runs a callback on the thread that deliveries
    /// are wanted on.
    virtual Result<std::unique_ptr<DisplayStream>> makeStream(const DisplayContentFilter & /*filter*/,
                                                              const DisplayCaptureConfiguration & /*configuration*/,
                                                              StreamDelegate /*delegate*/,
                                                              std::function<void(std::function<void()>)> /*post*/)
    {
        return std::unexpected(captureError(CaptureErrorCode::NoStream));
    }
};

} // namespace ostrel
