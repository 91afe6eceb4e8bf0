#include "capture/CaptureSources.h"

#include "base/Checked.h"
#include "base/Clock.h"
#include "base/Fault.h"
#include "base/Log.h"
#include "base/SerialQueue.h"
#include "capture/CaptureError.h"
#include "capture/FirstPicture.h"

#include <algorithm>
#include <utility>

namespace ostrel {

/// One display in screenshot mode.
struct CaptureSources::DisplayCaptureSource {
    DisplayContentFilter filter;
    DisplayCaptureConfiguration configuration;
    std::shared_ptr<DisplayCaptureContext> context;
    std::unique_ptr<DisplayScreenshotter> screenshotter;
};

namespace {

Result<FrameView> takePicture(DisplayScreenshotter &screenshotter)
{
    const auto picture = screenshotter.capture();
    if (!picture)
        return std::unexpected(picture.error());
    if (!*picture)
        return std::unexpected(captureError(CaptureErrorCode::NoImage));
    return **picture;
}

/// A clock that was set back would have the gate drop everything until it is where it was.
void forgetFrameOfTheFuture(DisplayCaptureContext &context, qint64 nowMs)
{
    if (context.lastAcceptedFrameMs > nowMs)
        context.lastAcceptedFrameMs = 0;
}

void logStarted(const DisplayCaptureContext &context)
{
    qCInfo(logScreenCapture, "screen capture stream started displayId=%s label=%s size=%lldx%lld",
           qUtf8Printable(context.displayId), qUtf8Printable(context.displayLabel), context.width, context.height);
}

void logFailed(quint32 displayId, const Error &error)
{
    qCCritical(logScreenCapture, "screen capture stream failed displayId=%u error=%s", displayId,
               qUtf8Printable(error.localizedDescription));
}

} // namespace

CaptureSources::CaptureSources(const Clock &clock, DisplaySource &displays, SerialQueue &sampleQueue,
                               std::shared_ptr<FirstPicture> firstPicture)
    : m_clock(clock), m_displays(displays), m_sampleQueue(sampleQueue), m_firstPicture(std::move(firstPicture)),
      m_gate(clock)
{}

CaptureSources::~CaptureSources() = default;

Result<> CaptureSources::openScreenshotSources(const CapturePlan &plan, DisplaysChanged displaysChanged)
{
    std::vector<DisplayCaptureSource> sources;
    for (const CapturePlan::Display &display : plan.displays) {
        auto screenshotter = m_displays.makeScreenshotter(display.filter, display.configuration);
        if (!screenshotter)
            return std::unexpected(screenshotter.error());
        sources.push_back(
            DisplayCaptureSource{display.filter, display.configuration, display.context, std::move(*screenshotter)});
    }
    m_screenshotSources = std::move(sources);
    m_displaysChanged = std::move(displaysChanged);
    qCInfo(logScreenCapture, "screen capture screenshot polling started sources=%zu", m_screenshotSources.size());
    return {};
}

Result<ScreenshotOutcome> CaptureSources::captureScreenshot(std::size_t index)
{
    // The poller's last job may come after the sources have gone.
    if (index >= m_screenshotSources.size())
        return ScreenshotOutcome::Skipped;
    if (index == 0)
        lookForChangedDisplays();
    DisplayCaptureSource &source = m_screenshotSources[index];
    if (isHidden()) {
        source.context->signsOfLife.note();
        return ScreenshotOutcome::Skipped;
    }
    const auto picture = takePicture(*source.screenshotter);
    source.context->signsOfLife.note(); // a failure is one too: whoever polls counts those
    if (!picture) {
        m_firstPicture->noteFailure(picture.error().localizedDescription);
        return std::unexpected(picture.error());
    }
    if (isHidden()) {
        source.context->newestDownsample.noteChanges(*picture);
        return ScreenshotOutcome::Skipped;
    }
    const qint64 nowMs = m_clock.nowMs();
    forgetFrameOfTheFuture(*source.context, nowMs);
    m_gate.processCapturedImage(*picture, *source.context, nowMs);
    noteUnreadablePicture();
    return ScreenshotOutcome::Taken;
}

Result<> CaptureSources::startStreams(const CapturePlan &plan, StreamsDied streamsDied, DisplaysChanged displaysChanged)
{
    m_streamsDied = std::move(streamsDied);
    m_displaysChanged = std::move(displaysChanged);
    for (const CapturePlan::Display &display : plan.displays) {
        checkedIncrement(m_lastStreamId);
        const StreamId id = m_lastStreamId;
        m_gate.contexts.insert(id, display.context);
        auto stream = startStream(display, id);
        if (!stream) {
            m_gate.contexts.remove(id);
            display.context->signsOfLife.end();
            logFailed(display.displayId, stream.error());
            continue;
        }
        logStarted(*display.context);
        m_streams.push_back(RunningStream{.id = id, .stream = std::move(*stream), .context = display.context});
    }
    if (m_streams.empty())
        return std::unexpected(captureError(CaptureErrorCode::NoStream));
    return {};
}

Result<std::shared_ptr<DisplayStream>> CaptureSources::startStream(const CapturePlan::Display &display, StreamId id)
{
    auto stream = m_displays.makeStream(display.filter, display.configuration, delegateFor(id),
                                        [&queue = m_sampleQueue](auto job) { queue.post(std::move(job)); });
    if (!stream)
        return std::unexpected(stream.error());
    if (const auto started = (*stream)->start(); !started)
        return std::unexpected(started.error());
    return std::shared_ptr(std::move(*stream));
}

DisplaySource::StreamDelegate CaptureSources::delegateFor(StreamId id)
{
    const auto weak = weak_from_this();
    return {
        .didOutputSample =
            [weak, id](const StreamSample &sample) {
                if (const auto sources = weak.lock())
                    sources->takeSample(id, sample);
            },
        .didStopWithError =
            [weak, id](const Error &error) {
                if (const auto sources = weak.lock())
                    sources->streamDidStop(id, error);
            },
    };
}

void CaptureSources::takeSample(StreamId id, const StreamSample &sample)
{
    const auto running = std::ranges::find(m_streams, id, &RunningStream::id);
    if (running != m_streams.end()) {
        if (sample.image)
            running->context->signsOfLife.notePicture();
        else
            running->context->signsOfLife.note();
        forgetFrameOfTheFuture(*running->context, m_clock.nowMs());
    }
    if (!isHidden()) {
        // One that may not be seen is asked for with the next context.
        if (running != m_streams.end() && !sample.image)
            running->hasMissedPicture = true;
        m_gate.streamDidOutputSample(id, sample);
        return noteUnreadablePicture();
    }
    if (running == m_streams.end())
        return;
    // What it says of changes is never said again.
    if (sample.image)
        running->context->newestDownsample.noteChanges(*sample.image);
    running->hasMissedPicture = true;
}

void CaptureSources::noteUnreadablePicture()
{
    const FrameCounters &counters = m_gate.counters;
    if (counters.acceptedFrameCount == 0 && (counters.downsampleFailureCount > 0 || counters.jpegFailureCount > 0))
        m_firstPicture->noteFailure(QStringLiteral("The screen's pictures could not be read."));
}

void CaptureSources::setPaused(bool paused)
{
    m_isPaused = paused;
    m_firstPicture->notePause(paused);
}

void CaptureSources::lookForSignsOfLife()
{
    // Streams may rest while the session is locked or something private is in front, and no others are begun then.
    const bool areLeftAlone = isHidden();
    if (!areLeftAlone && !m_streams.empty())
        lookForChangedDisplays();
    for (const RunningStream &running : m_streams) {
        if (running.stream->isAnswering() || areLeftAlone)
            running.context->signsOfLife.note();
        if (!areLeftAlone)
            running.context->signsOfLife.lookForPicture();
    }
}

void CaptureSources::begin(qint64 minFrameIntervalMs, const ActiveRecordingContext &context)
{
    m_gate.reset(minFrameIntervalMs, context);
    takeContext(context, m_clock.nowMs());
}

void CaptureSources::setRecordingContext(const ActiveRecordingContext &context, qint64 readSinceMs)
{
    takeContext(context, readSinceMs);
    ++m_arrived;
}

void CaptureSources::takeContext(const ActiveRecordingContext &context, qint64 readSinceMs)
{
    m_gate.setRecordingContext(context);
    m_leavesOutPrivateWindows = m_displays.leavesOutPrivateWindows();
    notePrivateWindow(isPrivate(context), readSinceMs);
    deliverMissedPictures();
}

bool CaptureSources::isPrivate(const ActiveRecordingContext &context) const
{
    // A private page isn't left out by a source that knows windows alone.
    return m_leavesOutPrivateWindows ? context.isPrivatePageInFront : context.isPrivateInFront;
}

void CaptureSources::announceRecordingContext(const ActiveRecordingContext &context, qint64 readSinceMs)
{
    if (m_arrived == m_announced.count)
        m_announced.takesBackSinceMs.reset();
    checkedIncrement(m_announced.count);
    if (!isPrivate(context))
        m_announced.lastPublicMs = readSinceMs;
    else if (!m_announced.takesBackSinceMs)
        m_announced.takesBackSinceMs = m_announced.lastPublicMs;
}

void CaptureSources::leaveBehind()
{
    m_isLeftBehind = true;
    m_gate.close();
    if (m_announced.takesBackSinceMs)
        m_gate.dropFramesSince(*m_announced.takesBackSinceMs);
}

void CaptureSources::notePrivateWindow(bool isInFront, qint64 readSinceMs)
{
    m_firstPicture->notePrivateWindow(isInFront);
    if (isInFront) {
        if (!std::exchange(m_hasToldOfHiding, true))
            qCInfo(logScreenCapture, "screen capture takes no picture while a private window is in front");
        takeBackFramesSince(m_lastPublicMs);
    } else {
        m_lastPublicMs = readSinceMs;
    }
    if (m_isPrivateInFront || isInFront)
        m_privateUntilMs = m_clock.nowMs();
    m_isPrivateInFront = isInFront;
}

void CaptureSources::takeBackFramesSince(qint64 ms)
{
    // What was taken back was never sent: the same picture is news when it may be seen again.
    const QSet<QString> displays = m_gate.dropFramesSince(ms);
    for (const DisplayCaptureSource &source : m_screenshotSources) {
        if (displays.contains(source.context->displayId))
            source.context->lastSentDownsample.reset();
    }
    for (RunningStream &running : m_streams) {
        if (!displays.contains(running.context->displayId))
            continue;
        running.context->lastSentDownsample.reset();
        running.hasMissedPicture = true;
    }
}

void CaptureSources::deliverMissedPictures()
{
    // A poll comes anyway. A stream says nothing more of a screen that now stays still.
    if (isHidden())
        return;
    for (RunningStream &running : m_streams) {
        if (std::exchange(running.hasMissedPicture, false))
            running.stream->deliverAgain();
    }
}

bool CaptureSources::isHidden()
{
    return m_isPaused || mayShowPrivateWindow();
}

bool CaptureSources::mayShowPrivateWindow() const
{
    if (m_isPrivateInFront)
        return true;
    // One frame's time later it has also gone from the screen.
    const qint64 goneForMs = checkedSubtract(m_clock.nowMs(), m_privateUntilMs);
    return m_privateUntilMs != 0 && goneForMs >= 0 && goneForMs < m_gate.minFrameIntervalMs;
}

void CaptureSources::lookForChangedDisplays()
{
    if (m_displaysChanged && m_displays.haveDisplaysChanged())
        tellOfChangedDisplays();
}

void CaptureSources::tellOfChangedDisplays()
{
    if (const auto tell = std::exchange(m_displaysChanged, nullptr))
        tell();
}

void CaptureSources::streamDidStop(StreamId id, const Error &error)
{
    m_gate.contexts.remove(id);
    const auto stopped = std::ranges::find(m_streams, id, &RunningStream::id);
    if (stopped == m_streams.end())
        return;
    const auto context = stopped->context;
    context->signsOfLife.end();
    // The stream may be what is calling; it goes when it has returned.
    m_stoppedStreams.push_back(std::move(stopped->stream));
    m_sampleQueue.post([weak = weak_from_this()] {
        if (const auto sources = weak.lock())
            sources->m_stoppedStreams.clear();
    });
    m_streams.erase(stopped);
    if (!m_streams.empty()) {
        qCWarning(logScreenCapture, "screen capture stream stopped displayId=%s error=%s",
                  qUtf8Printable(context->displayId), qUtf8Printable(error.localizedDescription));
        // A question in the middle of a recording would cost more than a display that is gone.
        if (m_displaysChanged && (isFault(error, Fault::DisplayResized) || !m_displays.wouldAskAgain()))
            tellOfChangedDisplays();
    } else if (m_streamsDied) {
        m_streamsDied(error.localizedDescription);
    }
}

void CaptureSources::tearDown()
{
    m_gate.contexts.clear();
    m_screenshotSources.clear();
    m_streamsDied = nullptr;
    m_displaysChanged = nullptr;
    for (const RunningStream &running : std::exchange(m_streams, {}))
        running.stream->stop();
    // Their display source may go when this has returned.
    m_stoppedStreams.clear();
}

} // namespace ostrel
