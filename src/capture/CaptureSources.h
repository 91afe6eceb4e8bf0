#pragma once

#include "capture/CapturePlan.h"
#include "capture/FrameGate.h"

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace ostrel {

class Clock;
class SerialQueue;

/// What came of the turn of one display.
enum class ScreenshotOutcome {
    Taken,
    Skipped, ///< capture is paused, or its sources have gone
};

/// Everything that lives on the sample queue: the gate and the sources that feed it. All calls on that queue, but for
/// `setPaused`; made and released by anybody. Screenshotters and streams are made, used and destroyed there, so call
/// `tearDown` before the last owner lets go.
class CaptureSources : public std::enable_shared_from_this<CaptureSources>
{
public:
    /// Takes the reason for which the last stream stopped. Called on the sample queue.
    using StreamsDied = std::function<void(const QString &message)>;
    /// Called on the sample queue, once a recording, when the displays are no longer those of the plan.
    using DisplaysChanged = std::function<void()>;

    /// All outlive this object.
    CaptureSources(const Clock &clock, DisplaySource &displays, SerialQueue &sampleQueue);
    ~CaptureSources();

    FrameGate &gate() { return m_gate; }

    /// Makes a screenshotter for each display of the plan: all of them, or none and the display source's error.
    Result<> openScreenshotSources(const CapturePlan &plan, DisplaysChanged displaysChanged = {});
    /// Takes a picture and passes it through the gate; before the first display's, looks whether the displays have
    /// changed.
    /// @param index of the display in the plan
    /// @return the screenshotter's error, or CaptureErrorCode::NoImage
    Result<ScreenshotOutcome> captureScreenshot(std::size_t index);

    /// While it is paused no picture is taken, and what streams deliver is dropped; also a picture that is just being
    /// taken. It stays so over `tearDown`. Any thread.
    void setPaused(bool paused) { m_isPaused = paused; }

    /// Starts a stream for each display of the plan and goes on without those that fail.
    /// @return CaptureErrorCode::NoStream when none could be started
    Result<> startStreams(const CapturePlan &plan, StreamsDied streamsDied);

    /// Stops and forgets all sources. The gate keeps its counters and what is buffered.
    void tearDown();

private:
    struct DisplayCaptureSource;
    struct RunningStream {
        StreamId id = 0;
        std::shared_ptr<DisplayStream> stream;
    };

    Result<std::shared_ptr<DisplayStream>> startStream(const CapturePlan::Display &display, StreamId id);
    DisplaySource::StreamDelegate delegateFor(StreamId id);
    void takeSample(StreamId id, const StreamSample &sample);
    void streamDidStop(StreamId id, const Error &error);
    void lookForChangedDisplays();

    const Clock &m_clock;
    DisplaySource &m_displays;
    SerialQueue &m_sampleQueue;
    /// Not a job on the queue: a pause must not wait for those that stand there already.
    std::atomic<bool> m_isPaused = false;
    FrameGate m_gate;
    std::vector<DisplayCaptureSource> m_screenshotSources;
    std::vector<RunningStream> m_streams;
    StreamsDied m_streamsDied;
    DisplaysChanged m_displaysChanged; ///< until it was called
    StreamId m_lastStreamId = 0;
};

} // namespace ostrel
