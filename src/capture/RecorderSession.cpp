#include "capture/RecorderSession.h"

#include "base/Checked.h"
#include "base/Clock.h"
#include "base/Fault.h"
#include "base/Log.h"
#include "base/SerialQueue.h"
#include "capture/CaptureConfiguration.h"
#include "capture/CaptureWatch.h"

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

/// As long as it takes until a display that is captured is said to have stalled.
constexpr QueuePatience::Limits queueLimits{.hurriedWait = ScreenCaptureRecorder::patienceOfAStop,
                                            .longWait = CaptureWatch::silentLooks * CaptureWatch::timeBetweenLooks};

QString noAnswer()
{
    return QStringLiteral("Screen capture has stalled: no answer from the desktop");
}

QString desktopMayAsk()
{
    return QStringLiteral("Screen capture has stalled: the desktop may be waiting for your answer to a question");
}

} // namespace

RecorderSession::RecorderSession(const ScreenCaptureRecorder &owner, Dependencies dependencies)
    : m_dependencies(std::move(dependencies)), m_news(std::make_shared<RecorderNews>(owner)), m_sources(makeSources()),
      m_patience(m_dependencies.clock, queueLimits,
                 {.lost = [this] { leaveBehind(); }, .isLong = [this] { tellOfLongWait(); }}),
      m_submitter(m_dependencies.sampleQueue,
                  {.publishStatus =
                       [this](ObserverStatus status) {
                           m_firstPicture->note();
                           m_news->tell(&ScreenCaptureRecorder::onStatus, std::move(status));
                       },
                   .publishError =
                       [this](QString message) { m_news->tell(&ScreenCaptureRecorder::onError, std::move(message)); }})
{}

Task<Result<>> RecorderSession::start(std::shared_ptr<RecorderSession> self, ObserverSettings settings,
                                      std::shared_ptr<LocalObserverAPI> api)
{
    const auto turn = co_await self->m_turn.acquire(self->lifetime());
    if (!turn)
        co_return std::unexpected(faultError(Fault::Cancelled));
    self->m_isInterrupted = false;
    self->noteHurry();
    const bool wasCapturing = self->m_isCapturing;
    co_await self->endRecording(LastFlush::Post);
    if (wasCapturing && self->m_hasLeftBehind)
        co_return std::unexpected(faultError(Fault::Cancelled));
    co_return co_await self->beginRecording(std::move(settings), std::move(api));
}

Task<RecorderSession::StopOutcome> RecorderSession::stop(std::shared_ptr<RecorderSession> self, bool skipFlush)
{
    // A start that waits for the user would keep the turn for as long as the user thinks.
    ++self->m_stopsUnderWay;
    self->interruptWaiting();
    const auto turn = co_await self->m_turn.acquire(self->lifetime());
    if (turn)
        co_await self->endRecording(skipFlush ? LastFlush::Skip : LastFlush::Post);
    --self->m_stopsUnderWay; // before the next one's turn
    self->noteHurry();
    co_return std::exchange(self->m_hasLeftBehind, false) ? StopOutcome::LeftBehind : StopOutcome::AtRest;
}

void RecorderSession::interruptWaiting()
{
    m_dependencies.displays.interruptWaiting();
    m_isInterrupted = m_turn.isHeld();
    noteHurry();
}

void RecorderSession::noteHurry()
{
    m_patience.setHurried(m_isInterrupted || m_stopsUnderWay > 0);
}

/// What hangs is waited for no longer.
void RecorderSession::leaveBehind()
{
    m_dependencies.displays.interruptWaiting(); // the first word may have come a moment before the question
    qCCritical(logScreenCapture, "what captures the screen does not answer: it is left behind");
    m_sources->leaveBehind();
}

void RecorderSession::tellOfLongWait()
{
    // Looked at once more when it is told, because the answer may come first. The recorder that is there keeps us.
    m_news->publish([this](const ScreenCaptureRecorder &recorder) {
        if (m_patience.waitsLong() && recorder.onNoAnswer)
            recorder.onNoAnswer(*m_mayAskUser ? desktopMayAsk() : noAnswer());
    });
}

std::shared_ptr<CaptureSources> RecorderSession::makeSources() const
{
    return std::make_shared<CaptureSources>(m_dependencies.clock, m_dependencies.displays, m_dependencies.sampleQueue,
                                            m_firstPicture);
}

Task<Result<>> RecorderSession::beginRecording(ObserverSettings settings, std::shared_ptr<LocalObserverAPI> api)
{
    if (m_sources->isLeftBehind()) {
        m_sources = makeSources();
        m_sources->setPaused(m_isPaused);
    }
    m_hasLeftBehind = false;
    const qint64 intervalMs = minFrameIntervalMs(settings.frameFps);
    auto plan = co_await makePlan(settings.frameFps);
    if (!plan)
        co_return std::unexpected(plan.error());
    qCInfo(logScreenCapture, "screen capture starting displays=%lld fps=%f chunkMs=%lld filter=%s",
           qint64(plan->displays.size()), settings.frameFps, settings.chunkSizeMs,
           qUtf8Printable(plan->filterMode.diagnosticDescription()));

    auto context = co_await m_patience.answerOf(&m_dependencies.contextQueue,
                                                [&reader = m_dependencies.context, displays = plan->candidates] {
                                                    return reader.currentRecordingContext(displays);
                                                });
    if (!context)
        co_return std::unexpected(faultError(Fault::Cancelled));
    if (auto opened = co_await openSources(*plan, std::move(*context), intervalMs); !opened)
        co_return opened;

    m_submitter.open(m_sources, std::move(api));
    m_isCapturing = true;
    startTasks(*plan, intervalMs, settings.chunkSizeMs);
    co_return Result<>{};
}

Task<Result<CapturePlan>> RecorderSession::makePlan(double frameFps)
{
    const Dependencies &given = m_dependencies;
    auto plan = co_await m_patience.answerOf(&given.sampleQueue, [given, frameFps, mayAsk = m_mayAskUser] {
        *mayAsk = given.displays.captureMode() == CaptureMode::Streams;
        auto planned = planCapture(given.displays, frameFps, given.processID, given.bundleIdentifier);
        *mayAsk = false;
        return planned;
    });
    if (!plan)
        co_return std::unexpected(faultError(Fault::Cancelled));
    co_return *std::move(plan);
}

Task<Result<>> RecorderSession::openSources(CapturePlan plan, ActiveRecordingContext context, qint64 intervalMs)
{
    const auto opened = co_await m_patience.answerOf(
        &m_dependencies.sampleQueue, [sources = m_sources, died = m_news->streamsDiedOutlet(),
                                      changed = m_news->displaysChangedOutlet(), plan, context, intervalMs] {
            sources->begin(intervalMs, context);
            return plan.mode == CaptureMode::Screenshots ? sources->openScreenshotSources(plan, changed)
                                                         : sources->startStreams(plan, died, changed);
        });
    if (!opened) {
        m_dependencies.sampleQueue.post([sources = m_sources] { sources->tearDown(); });
        co_return std::unexpected(faultError(Fault::Cancelled));
    }
    co_return *opened;
}

void RecorderSession::startTasks(const CapturePlan &plan, qint64 intervalMs, qint64 chunkSizeMs)
{
    ++m_recording;
    m_captureTasks.start({.with = m_dependencies, .sources = m_sources, .news = m_news}, plan, intervalMs);
    m_chunkTask.start([self = shared_from_this(), chunkSizeMs](std::stop_token stop) {
        return flushChunks(self, chunkSizeMs, stop);
    });
}

void RecorderSession::cancelTasks()
{
    m_chunkTask.cancel();
    m_captureTasks.cancel();
}

Task<> RecorderSession::flushChunks(std::shared_ptr<RecorderSession> self, qint64 chunkSizeMs, std::stop_token stop)
{
    const qint64 recording = self->m_recording;
    const std::chrono::milliseconds interval(std::max<qint64>(chunkSizeMs, 1));
    while (co_await self->m_dependencies.clock.sleepFor(interval, stop)) {
        // A batch that has left the buffer is never cut off, so it does not run on our own token.
        if (co_await self->m_submitter.flush(self->lifetime(), self->m_patience.token()))
            continue;
        co_await endAfterFailedBatch(self, recording);
        co_return;
    }
}

Task<> RecorderSession::endAfterFailedBatch(std::shared_ptr<RecorderSession> self, qint64 recording)
{
    const auto turn = co_await self->m_turn.acquire(self->lifetime());
    if (turn && self->m_recording == recording)
        co_await self->endRecording(LastFlush::Skip);
}

Task<> RecorderSession::endRecording(LastFlush lastFlush)
{
    if (!std::exchange(m_isCapturing, false))
        co_return;
    const auto patience = m_patience.token();
    cancelTasks();
    // Jobs that these tasks have handed over come first; a picture that is just being taken is in the last batch.
    static_cast<void>(
        co_await m_patience.answerOf(&m_dependencies.sampleQueue, [sources = m_sources] { sources->tearDown(); }));
    if (lastFlush == LastFlush::Skip) {
        m_sources->gate().dropBufferedFrames();
        co_await m_submitter.settled(lifetime());
    } else {
        static_cast<void>(co_await m_submitter.flush(lifetime(), patience));
    }
    m_submitter.close();
    m_hasLeftBehind = m_sources->isLeftBehind();
}

void RecorderSession::setPaused(bool paused)
{
    if (std::exchange(m_isPaused, paused) == paused)
        return;
    qCInfo(logScreenCapture, "screen capture %s", paused ? "paused" : "goes on after a pause");
    m_sources->setPaused(paused);
}

qint64 RecorderSession::lostFrames() const
{
    return checkedAdd(m_sources->gate().bufferedFrameCount(), m_submitter.framesOnTheirWay());
}

void RecorderSession::logLostFrames() const
{
    if (const qint64 lost = lostFrames(); lost > 0)
        qCCritical(logScreenCapture, "screen capture ended before the observer took frames=%lld", lost);
}

void RecorderSession::shutDown()
{
    m_news->end();
    cancelTasks();
    m_isCapturing = false;
    m_lifetime.request_stop();
    m_patience.endAllWaits();
    interruptWaiting();
    const auto deadline = std::chrono::steady_clock::now() + m_dependencies.patienceAtTheEnd;
    const auto samplesEnd = endOf(m_dependencies.sampleQueue, [sources = m_sources] { sources->tearDown(); });
    const auto contextEnd = endOf(m_dependencies.contextQueue, [] {});
    awaitEnd(samplesEnd, m_dependencies.sampleQueue, deadline);
    logLostFrames();
    awaitEnd(contextEnd, m_dependencies.contextQueue, deadline);
}

/// When the queue has run its last job of ours, and with it all before.
std::future<void> RecorderSession::endOf(SerialQueue &queue, std::function<void()> lastJob)
{
    const auto task = std::make_shared<std::packaged_task<void()>>(std::move(lastJob));
    auto end = task->get_future();
    queue.post([task] { (*task)(); });
    return end;
}

void RecorderSession::awaitEnd(const std::future<void> &end, const SerialQueue &queue,
                               std::chrono::steady_clock::time_point deadline) const
{
    if (m_dependencies.endWithoutWaiting &&
        (m_patience.hangs(queue) || end.wait_until(deadline) == std::future_status::timeout)) {
        const qint64 lost = lostFrames();
        qCCritical(logScreenCapture,
                   "what captures the screen does not answer and is not waited for, undelivered frames=%lld", lost);
        m_dependencies.endWithoutWaiting(lost);
    }
    end.wait();
}

} // namespace ostrel
