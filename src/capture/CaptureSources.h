#pragma once

#include "capture/CapturePlan.h"
#include "capture/FrameGate.h"

#include <functional>
#include <memory>
#include <vector>

namespace ostrel {

class Clock;
class SerialQueue;

/// Everything that lives on the sample queue: the gate and the sources that feed it. All calls on that queue; made and
/// released by anybody. Screenshotters and streams are made, used and destroyed there, so call `tearDown` before the
/// last owner lets go.
class CaptureSources : public std::enable_shared_from_this<CaptureSources>
{
public:
    /// Takes the reason for which the last stream stopped. Called on the sample queue.
    using StreamsDied = std::function<void(const QString &message)>;

    /// All outlive this object.
    CaptureSources(const Clock &clock, DisplaySource &displays, SerialQueue &sampleQueue);
    ~CaptureSources();

    FrameGate &gate() { return m_gate; }

    /// Makes a screenshotter for each display of the plan: all of them, or none and the display source's error.
    Result<> openScreenshotSources(const CapturePlan &plan);
    /// Takes a picture and passes it through the gate.
    /// @param index of the display in the plan. After `tearDown` nothing is taken, and that is no failure.
    /// @return the screenshotter's error, or CaptureErrorCode::NoImage
    Result<> captureScreenshot(std::size_t index);

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
    void streamDidStop(StreamId id, const Error &error);

    const Clock &m_clock;
    DisplaySource &m_displays;
    SerialQueue &m_sampleQueue;
    FrameGate m_gate;
    std::vector<DisplayCaptureSource> m_screenshotSources;
    std::vector<RunningStream> m_streams;
    StreamsDied m_streamsDied;
    StreamId m_lastStreamId = 0;
};

} // namespace ostrel
