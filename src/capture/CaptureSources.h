#pragma once

#include "capture/CapturePlan.h"
#include "capture/FrameGate.h"

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace ostrel {

class Clock;
class FirstPicture;
class SerialQueue;

/// What came of the turn of one display.
enum class ScreenshotOutcome {
    Taken,
    Skipped, ///< capture is paused, or its sources have gone
};

/// Everything that lives on the sample queue: the gate and the sources that feed it. All calls on that queue, but for
/// those that say otherwise; made and released by anybody. Screenshotters and streams are made, used and destroyed
/// there, so call `tearDown` before the last owner lets go.
class CaptureSources : public std::enable_shared_from_this<CaptureSources>
{
public:
    /// Takes the reason for which the last stream stopped. Called on the sample queue.
    using StreamsDied = std::function<void(const QString &message)>;
    /// Called on the sample queue, once a recording, when the displays are no longer those of the plan, or the stream
    /// of one of them has stopped while others run, unless it is gone and the user might be asked before capture could
    /// start anew.
    using DisplaysChanged = std::function<void()>;

    /// The references outlive this object.
    /// @param firstPicture told of what keeps one from coming
    CaptureSources(const Clock &clock, DisplaySource &displays, SerialQueue &sampleQueue,
                   std::shared_ptr<FirstPicture> firstPicture);
    ~CaptureSources();

    FrameGate &gate() { return m_gate; }

    /// Begins a recording.
    void begin(qint64 minFrameIntervalMs, const ActiveRecordingContext &context);
    /// What frames from now on carry with them; called again and again. Where the display source can't leave out
    /// private windows, and one of them is in front, none is taken until it has been gone for the time between two
    /// frames; those that were taken since the last context without one are dropped, as far as they have not been
    /// posted. What a display shows when that, or a pause, is over is judged anew, even if it stays still from then on.
    /// @param readSinceMs when the reading of the context began, by the clock
    void setRecordingContext(const ActiveRecordingContext &context, qint64 readSinceMs);
    /// Tells of a context before it is on its way to `setRecordingContext`, for `leaveBehind`. Main thread.
    void announceRecordingContext(const ActiveRecordingContext &context, qint64 readSinceMs);

    /// Makes a screenshotter for each display of the plan: all of them, or none and the display source's error.
    Result<> openScreenshotSources(const CapturePlan &plan, DisplaysChanged displaysChanged = {});
    /// Takes a picture and passes it through the gate; before the first display's, looks whether the displays have
    /// changed.
    /// @param index of the display in the plan
    /// @return the screenshotter's error, or CaptureErrorCode::NoImage
    Result<ScreenshotOutcome> captureScreenshot(std::size_t index);

    /// While it is paused no picture is taken, and what streams deliver is dropped; also a picture that is just being
    /// taken. It stays so over `tearDown`. Any thread.
    void setPaused(bool paused);

    /// Starts a stream for each display of the plan and goes on without those that fail.
    /// @return CaptureErrorCode::NoStream when none could be started
    Result<> startStreams(const CapturePlan &plan, StreamsDied streamsDied, DisplaysChanged displaysChanged = {});

    /// Notes a sign of life for every stream whose way is open, or which is left alone on purpose; and that it was
    /// looked for a picture of those that are not. While streams run that are not left alone, it also looks whether the
    /// displays have changed.
    void lookForSignsOfLife();

    /// Stops and forgets all sources. The gate keeps its counters and what is buffered.
    void tearDown();

    /// The sample queue hangs, and is not waited for: no picture counts from now on, and what the contexts on their way
    /// there would have taken back is dropped. Main thread. `tearDown` is still to come, on the queue.
    void leaveBehind();
    bool isLeftBehind() const { return m_isLeftBehind; }

private:
    struct DisplayCaptureSource;
    struct RunningStream {
        StreamId id = 0;
        std::shared_ptr<DisplayStream> stream;
        std::shared_ptr<DisplayCaptureContext> context;
        bool hasMissedPicture = false; ///< the newest one was not judged, or taken back
    };

    Result<std::shared_ptr<DisplayStream>> startStream(const CapturePlan::Display &display, StreamId id);
    DisplaySource::StreamDelegate delegateFor(StreamId id);
    void takeSample(StreamId id, const StreamSample &sample);
    void streamDidStop(StreamId id, const Error &error);
    void lookForChangedDisplays();
    void tellOfChangedDisplays();
    void takeContext(const ActiveRecordingContext &context, qint64 readSinceMs);
    bool isPrivate(const ActiveRecordingContext &context) const;
    void notePrivateWindow(bool isInFront, qint64 readSinceMs);
    void takeBackFramesSince(qint64 ms);
    void deliverMissedPictures();
    /// Whether no picture may be kept now.
    void noteUnreadablePicture();
    bool isHidden();
    bool mayShowPrivateWindow() const;

    const Clock &m_clock;
    DisplaySource &m_displays;
    SerialQueue &m_sampleQueue;
    const std::shared_ptr<FirstPicture> m_firstPicture;
    /// Not a job on the queue: a pause must not wait for those that stand there already.
    std::atomic<bool> m_isPaused = false;
    std::atomic<bool> m_isLeftBehind = false;
    std::atomic<bool> m_leavesOutPrivateWindows = false; ///< as the display source said last
    FrameGate m_gate;
    bool m_isPrivateInFront = false;
    qint64 m_lastPublicMs = 0;   ///< when the last context without a private window was begun
    qint64 m_privateUntilMs = 0; ///< when it was last known that there still was one
    bool m_hasToldOfHiding = false;
    /// What has been announced, on the main thread, and how much of it has arrived.
    struct {
        qint64 count = 0;
        qint64 lastPublicMs = 0;
        std::optional<qint64> takesBackSinceMs; ///< those of them that may still be on their way
    } m_announced;
    std::atomic<qint64> m_arrived = 0;
    std::vector<DisplayCaptureSource> m_screenshotSources;
    std::vector<RunningStream> m_streams;
    std::vector<std::shared_ptr<DisplayStream>> m_stoppedStreams; ///< which may still be calling
    StreamsDied m_streamsDied;
    DisplaysChanged m_displaysChanged; ///< until it was called
    StreamId m_lastStreamId = 0;
};

} // namespace ostrel
