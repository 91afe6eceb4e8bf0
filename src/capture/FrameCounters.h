#pragma once

#include <QString>

namespace ostrel {

/// What has become of the frames since the start of a recording. Counted with `checkedIncrement`.
struct FrameCounters {
    qint64 callbackCount = 0;           ///< reached the gate with a usable sample
    qint64 missingContextCount = 0;     ///< came from a stream that has no context
    qint64 invalidSampleCount = 0;      ///< of the wrong output kind or marked invalid
    qint64 missingPixelBufferCount = 0; ///< without a picture
    qint64 throttledFrameCount = 0;     ///< came too early
    qint64 downsampleFailureCount = 0;  ///< the thumbnail could not be made
    qint64 unchangedFrameCount = 0;     ///< showed no meaningful change
    qint64 jpegFailureCount = 0;        ///< could not be encoded
    qint64 acceptedFrameCount = 0;      ///< buffered for submission

    bool operator==(const FrameCounters &) const = default;

    /// All of them in one line, as in "callbacks=120 accepted=7 buffered=7 ...".
    /// @param buffered frames that wait for submission
    QString diagnosticSummary(qint64 buffered) const;
};

} // namespace ostrel
