#include "capture/FrameGate.h"

#include "base/Checked.h"
#include "base/Clock.h"
#include "capture/FrameChangeDetector.h"

#include <utility>

namespace ostrel {

namespace {

/// A source that delivers at exactly the configured rate is not to lose frames to jitter.
constexpr double throttleSlack = 0.8;

} // namespace

FrameGate::FrameGate(const Clock &clock) : m_clock(clock) {}

void FrameGate::reset(qint64 intervalMs, const ActiveRecordingContext &context)
{
    {
        const std::scoped_lock lock(m_mutex);
        counters = {};
        bufferedFrames.clear();
    }
    contexts.clear();
    frameIndex = 0;
    minFrameIntervalMs = intervalMs;
    setRecordingContext(context);
}

void FrameGate::setRecordingContext(const ActiveRecordingContext &context)
{
    latestForegroundAppText = context.appContextText;
    latestActiveDisplay = context.activeDisplay;
}

QSet<QString> FrameGate::dropFramesSince(qint64 ms)
{
    QSet<QString> displays;
    const std::scoped_lock lock(m_mutex);
    bufferedFrames.removeIf([&](const CapturedFramePayload &frame) {
        const bool isDropped = frame.receivedAtMs >= ms;
        if (isDropped)
            displays.insert(frame.displayId);
        return isDropped;
    });
    return displays;
}

void FrameGate::streamDidOutputSample(StreamId stream, const StreamSample &sample)
{
    if (sample.kind != StreamOutputKind::Screen || !sample.valid)
        return count(&FrameCounters::invalidSampleCount);
    count(&FrameCounters::callbackCount);
    const auto context = contexts.value(stream);
    if (!context)
        return count(&FrameCounters::missingContextCount);
    if (!sample.image)
        return count(&FrameCounters::missingPixelBufferCount);
    judge(*sample.image, *context, m_clock.nowMs());
}

void FrameGate::processCapturedImage(const FrameView &image, DisplayCaptureContext &context, qint64 receivedAtMs)
{
    count(&FrameCounters::callbackCount);
    judge(image, context, receivedAtMs);
}

void FrameGate::judge(const FrameView &image, DisplayCaptureContext &context, qint64 nowMs)
{
    context.newestDownsample.noteChanges(image); // a dropped frame's changes are still in the next one
    if (isThrottled(context, nowMs))
        return count(&FrameCounters::throttledFrameCount);
    const Downsample *downsample = context.newestDownsample.update(image, m_downsampler);
    if (!downsample)
        return count(&FrameCounters::downsampleFailureCount);
    if (!FrameChangeDetector::hasMeaningfulChange(*downsample, context.lastSentDownsample)) {
        // The throttle window starts again, but the reference stays the frame that was sent.
        context.lastAcceptedFrameMs = nowMs;
        return count(&FrameCounters::unchangedFrameCount);
    }
    const auto jpeg = m_encoder.makeJPEGData(image);
    if (!jpeg)
        return count(&FrameCounters::jpegFailureCount);
    CapturedFramePayload payload = makePayload(*jpeg, context, nowMs);
    checkedIncrement(frameIndex);
    context.lastAcceptedFrameMs = nowMs;
    context.lastSentDownsample = *downsample;
    buffer(std::move(payload));
}

bool FrameGate::isThrottled(const DisplayCaptureContext &context, qint64 nowMs) const
{
    const qint64 elapsedMs = checkedSubtract(nowMs, context.lastAcceptedFrameMs);
    return elapsedMs < checkedTruncate(double(minFrameIntervalMs) * throttleSlack);
}

CapturedFramePayload FrameGate::makePayload(std::span<const std::uint8_t> jpeg, const DisplayCaptureContext &context,
                                            qint64 nowMs) const
{
    CapturedFramePayload payload;
    payload.receivedAtMs = nowMs;
    payload.frameIndex = frameIndex;
    // The encoder's buffer is as large as the worst picture; the frame gets a copy of just its own size.
    payload.videoBase64 =
        Base64Text::ofBytes(QByteArray(reinterpret_cast<const char *>(jpeg.data()), qsizetype(jpeg.size())));
    payload.videoMimeType = QStringLiteral("image/jpeg");
    payload.text = latestForegroundAppText;
    payload.displayId = context.displayId;
    payload.displayLabel = context.displayLabel;
    payload.displayWidth = context.width;
    payload.displayHeight = context.height;
    if (latestActiveDisplay) {
        payload.activeDisplayId = latestActiveDisplay->displayId;
        payload.activeDisplayLabel = latestActiveDisplay->displayLabel;
        payload.activeDisplayReason = latestActiveDisplay->reason;
    }
    return payload;
}

void FrameGate::count(qint64 FrameCounters::*counter)
{
    const std::scoped_lock lock(m_mutex);
    checkedIncrement(counters.*counter);
}

void FrameGate::buffer(CapturedFramePayload frame)
{
    const std::scoped_lock lock(m_mutex);
    if (m_isClosed)
        return;
    checkedIncrement(counters.acceptedFrameCount);
    bufferedFrames.append(std::move(frame));
}

FrameGate::Batch FrameGate::takeBufferedFrames()
{
    const std::scoped_lock lock(m_mutex);
    const QString summary = counters.diagnosticSummary(bufferedFrames.size());
    return Batch{std::exchange(bufferedFrames, {}), summary};
}

void FrameGate::dropBufferedFrames()
{
    const std::scoped_lock lock(m_mutex);
    bufferedFrames.clear();
}

void FrameGate::close()
{
    const std::scoped_lock lock(m_mutex);
    m_isClosed = true;
}

QString FrameGate::diagnosticSummary() const
{
    const std::scoped_lock lock(m_mutex);
    return counters.diagnosticSummary(bufferedFrames.size());
}

qint64 FrameGate::bufferedFrameCount() const
{
    const std::scoped_lock lock(m_mutex);
    return bufferedFrames.size();
}

} // namespace ostrel
