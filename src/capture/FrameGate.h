#pragma once

#include "capture/DisplayCaptureContext.h"
#include "capture/DisplaySource.h"
#include "capture/FrameCounters.h"
#include "capture/JpegEncoder.h"
#include "capture/Thumbnail.h"
#include "context/ActiveApplicationContext.h"
#include "observer/WireRecords.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

namespace ostrel {

class Clock;

/// Names a running stream.
using StreamId = qint64;

/// Judges every frame, wherever it comes from: counts it, drops it when it comes too early or shows nothing new, and
/// otherwise encodes it, wraps it with its context and buffers it. The cheap steps come first, so that a still screen
/// costs no encoding. All of it lives on the sample queue, which may be what hangs: what is said to be for any thread
/// waits for no picture. Arithmetic that overflows is fatal.
class FrameGate
{
public:
    /// The clock outlives this object.
    explicit FrameGate(const Clock &clock);

    /// Begins a recording: everything as new, but the buffers that are kept for their memory.
    void reset(qint64 minFrameIntervalMs, const ActiveRecordingContext &context);
    /// What frames from now on carry with them.
    void setRecordingContext(const ActiveRecordingContext &context);
    /// Takes back what was accepted then or later and is still here. Any thread.
    /// @return the identifiers of the displays that it was of
    QSet<QString> dropFramesSince(qint64 ms);

    /// A delivery of a stream, judged at the present time. Pixels are read during the call only.
    void streamDidOutputSample(StreamId stream, const StreamSample &sample);
    /// A still picture of the display that `context` is of.
    /// @param receivedAtMs wall-clock milliseconds
    void processCapturedImage(const FrameView &image, DisplayCaptureContext &context, qint64 receivedAtMs);

    struct Batch {
        QList<CapturedFramePayload> frames;
        QString summary; ///< the counters at the moment of taking
    };
    /// Takes what is buffered and leaves the buffer empty; a later frame belongs to the next batch. Any thread.
    Batch takeBufferedFrames();
    /// Drops what is buffered. Any thread.
    void dropBufferedFrames();
    /// Buffers nothing more, not even the frame that is just being judged. Any thread.
    void close();

    /// The counters and the number of frames that wait, in one line. Any thread.
    QString diagnosticSummary() const;
    /// How many frames wait. Any thread.
    qint64 bufferedFrameCount() const;

    FrameCounters counters;
    QHash<StreamId, std::shared_ptr<DisplayCaptureContext>> contexts; ///< of the streams that run
    QList<CapturedFramePayload> bufferedFrames;                       ///< in the order of acceptance
    std::optional<QString> latestForegroundAppText;
    std::optional<ActiveDisplaySelection> latestActiveDisplay;
    qint64 frameIndex = 0; ///< that the next accepted frame gets
    qint64 minFrameIntervalMs = 0;

private:
    void count(qint64 FrameCounters::*counter);
    void buffer(CapturedFramePayload frame);
    void judge(const FrameView &image, DisplayCaptureContext &context, qint64 nowMs);
    bool isThrottled(const DisplayCaptureContext &context, qint64 nowMs) const;
    CapturedFramePayload makePayload(std::span<const std::uint8_t> jpeg, const DisplayCaptureContext &context,
                                     qint64 nowMs) const;

    const Clock &m_clock;
    mutable std::mutex m_mutex; ///< of counters and buffer; never held for long
    bool m_isClosed = false;
    Downsampler m_downsampler;
    JpegEncoder m_encoder;
};

} // namespace ostrel
