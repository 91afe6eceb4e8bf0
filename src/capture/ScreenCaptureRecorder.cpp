#include "capture/ScreenCaptureRecorder.h"

#include "base/AsyncLock.h"
#include "base/Checked.h"
#include "base/Clock.h"
#include "base/Fault.h"
#include "base/Log.h"
#include "base/Mailbox.h"
#include "base/SerialQueue.h"
#include "base/TaskSlot.h"
#include "capture/BatchSubmitter.h"
#include "capture/CaptureConfiguration.h"
#include "capture/CaptureSources.h"
#include "capture/CaptureWatch.h"
#include "capture/ForegroundSampler.h"
#include "capture/QueuePatience.h"
#include "capture/ScreenshotPoller.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <algorithm>
#include <chrono>
#include <future>
#include <type_traits>
#include <utility>

namespace ostrel {

/// The recorder's inside, shared with its coroutines: each holds it until it has ended, so that the recorder may go at
/// any moment. Main thread.
class ScreenCaptureRecorder::Session : public std::enable_shared_from_this<Session>
{
public:
    Session(ScreenCaptureRecorder *owner, Dependencies dependencies);

    static Task<Result<>> start(std::shared_ptr<Session> self, ObserverSettings settings,
                                std::shared_ptr<LocalObserverAPI> api);
    static Task<StopOutcome> stop(std::shared_ptr<Session> self, bool skipFlush);
    QString diagnosticSummary() const { return m_sources->gate().diagnosticSummary(); }
    void interruptWaiting();
    void setPaused(bool paused);
    bool isCapturing() const { return m_isCapturing; }

    /// The owner goes: ends everything, and returns when no job refers to what the dependencies name.
    void shutDown();

private:
    enum class LastFlush { Post, Skip };

    Task<Result<>> beginRecording(ObserverSettings settings, std::shared_ptr<LocalObserverAPI> api);
    Task<Result<>> openSources(CapturePlan plan, ActiveRecordingContext context, qint64 intervalMs);
    void startTasks(const CapturePlan &plan, qint64 intervalMs, qint64 chunkSizeMs);
    void startWatch(const CapturePlan &plan);
    void cancelTasks();
    Task<> endRecording(LastFlush lastFlush);

    static Task<> flushChunks(std::shared_ptr<Session> self, qint64 chunkSizeMs, std::stop_token stop);
    static Task<> endAfterFailedBatch(std::shared_ptr<Session> self, qint64 recording);

    void noteHurry();
    void leaveBehind();
    std::shared_ptr<CaptureSources> makeSources() const;

    /// Calls back from the event loop, unless the owner has gone by then.
    void publish(std::function<void(const ScreenCaptureRecorder &)> call);
    void publishStreamsDied(const QString &message);
    /// Has the owner's callback called, where one is set.
    template <class... Words>
    void tell(std::function<void(Words...)> ScreenCaptureRecorder::*callback, std::decay_t<Words>... words)
    {
        publish([callback, ... words = std::move(words)](const ScreenCaptureRecorder &owner) {
            if (const auto call = owner.*callback)
                call(words...);
        });
    }
    CaptureSources::StreamsDied streamsDiedOutlet();
    CaptureSources::DisplaysChanged displaysChangedOutlet();
    qint64 lostFrames() const;
    void logLostFrames() const;
    static std::future<void> endOf(SerialQueue &queue, std::function<void()> lastJob);
    void awaitEnd(const std::future<void> &end, const SerialQueue &queue,
                  std::chrono::steady_clock::time_point deadline) const;

    bool isGone() const { return m_lifetime.stop_requested(); }
    /// For what must not be cut off by the task that does it.
    std::stop_token lifetime() const { return m_lifetime.get_token(); }

    ScreenCaptureRecorder *m_owner;
    const Dependencies m_dependencies;
    std::shared_ptr<CaptureSources> m_sources; ///< others after they were left behind
    /// Brings word from the sample queue.
    const std::shared_ptr<Mailbox> m_home = std::make_shared<Mailbox>();
    std::stop_source m_lifetime;
    AsyncLock m_turn; ///< of starts and stops
    int m_stopsUnderWay = 0;
    bool m_isInterrupted = false; ///< what has the turn
    bool m_hasLeftBehind = false; ///< the recording that has ended last, as no stop has told yet
    QueuePatience m_patience;     ///< of whoever has the turn
    BatchSubmitter m_submitter;
    qint64 m_recording = 0; ///< counts starts, so that a late end never hits the next recording
    bool m_isCapturing = false;
    bool m_isPaused = false;
    TaskSlot m_chunkTask;
    TaskSlot m_screenshotTask;
    TaskSlot m_foregroundAppTask;
    TaskSlot m_watchTask;
};

ScreenCaptureRecorder::Session::Session(ScreenCaptureRecorder *owner, Dependencies dependencies)
    : m_owner(owner), m_dependencies(std::move(dependencies)), m_sources(makeSources()),
      m_patience(m_dependencies.clock, patienceOfAStop, [this] { leaveBehind(); }),
      m_submitter(
          m_dependencies.sampleQueue,
          {.publishStatus =
               [this](ObserverStatus status) { tell(&ScreenCaptureRecorder::onStatus, std::move(status)); },
           .publishError = [this](QString message) { tell(&ScreenCaptureRecorder::onError, std::move(message)); }})
{}

Task<Result<>> ScreenCaptureRecorder::Session::start(std::shared_ptr<Session> self, ObserverSettings settings,
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

Task<ScreenCaptureRecorder::StopOutcome> ScreenCaptureRecorder::Session::stop(std::shared_ptr<Session> self,
                                                                              bool skipFlush)
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

void ScreenCaptureRecorder::Session::interruptWaiting()
{
    m_dependencies.displays.interruptWaiting();
    m_isInterrupted = m_turn.isHeld();
    noteHurry();
}

void ScreenCaptureRecorder::Session::noteHurry()
{
    m_patience.setHurried(m_isInterrupted || m_stopsUnderWay > 0);
}

/// What hangs is waited for no longer.
void ScreenCaptureRecorder::Session::leaveBehind()
{
    m_dependencies.displays.interruptWaiting(); // the first word may have come a moment before the question
    qCCritical(logScreenCapture, "what captures the screen does not answer: it is left behind");
    m_sources->leaveBehind();
}

std::shared_ptr<CaptureSources> ScreenCaptureRecorder::Session::makeSources() const
{
    return std::make_shared<CaptureSources>(m_dependencies.clock, m_dependencies.displays, m_dependencies.sampleQueue);
}

Task<Result<>> ScreenCaptureRecorder::Session::beginRecording(ObserverSettings settings,
                                                              std::shared_ptr<LocalObserverAPI> api)
{
    if (m_sources->isLeftBehind()) {
        m_sources = makeSources();
        m_sources->setPaused(m_isPaused);
    }
    m_hasLeftBehind = false;
    const qint64 intervalMs = minFrameIntervalMs(settings.frameFps);
    const Dependencies &given = m_dependencies;
    auto plan = co_await m_patience.answerOf(&given.sampleQueue, [given, frameFps = settings.frameFps] {
        return planCapture(given.displays, frameFps, given.processID, given.bundleIdentifier);
    });
    if (!plan)
        co_return std::unexpected(faultError(Fault::Cancelled));
    if (!*plan)
        co_return std::unexpected(plan->error());
    qCInfo(logScreenCapture, "screen capture starting displays=%lld fps=%f chunkMs=%lld filter=%s",
           qint64((*plan)->displays.size()), settings.frameFps, settings.chunkSizeMs,
           qUtf8Printable((*plan)->filterMode.diagnosticDescription()));

    auto context =
        co_await m_patience.answerOf(&given.contextQueue, [&reader = given.context, displays = (*plan)->candidates] {
            return reader.currentRecordingContext(displays);
        });
    if (!context)
        co_return std::unexpected(faultError(Fault::Cancelled));
    if (auto opened = co_await openSources(**plan, std::move(*context), intervalMs); !opened)
        co_return opened;

    m_submitter.open(m_sources, std::move(api));
    m_isCapturing = true;
    startTasks(**plan, intervalMs, settings.chunkSizeMs);
    co_return Result<>{};
}

Task<Result<>> ScreenCaptureRecorder::Session::openSources(CapturePlan plan, ActiveRecordingContext context,
                                                           qint64 intervalMs)
{
    const auto opened = co_await m_patience.answerOf(
        &m_dependencies.sampleQueue, [sources = m_sources, died = streamsDiedOutlet(),
                                      changed = displaysChangedOutlet(), plan, context, intervalMs] {
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

void ScreenCaptureRecorder::Session::startTasks(const CapturePlan &plan, qint64 intervalMs, qint64 chunkSizeMs)
{
    ++m_recording;
    const auto self = shared_from_this();
    const Dependencies &given = m_dependencies;
    m_foregroundAppTask.start([sampling = ForegroundSampling{given.clock, given.context, given.contextQueue,
                                                             given.sampleQueue, m_sources, plan.candidates}](
                                  std::stop_token stop) { return sampleForegroundApp(sampling, stop); });
    if (plan.mode == CaptureMode::Screenshots) {
        ScreenshotPolling polling{given.clock,
                                  given.sampleQueue,
                                  m_sources,
                                  {},
                                  intervalMs,
                                  [self, displays = plan.displays](const QString &message) {
                                      for (const CapturePlan::Display &display : displays)
                                          display.context->signsOfLife.end();
                                      self->publishStreamsDied(message);
                                  }};
        for (const CapturePlan::Display &display : plan.displays)
            polling.displays.append({display.context->displayId, display.context->displayLabel});
        m_screenshotTask.start([polling](std::stop_token stop) { return pollScreenshots(polling, stop); });
    }
    m_chunkTask.start([self, chunkSizeMs](std::stop_token stop) { return flushChunks(self, chunkSizeMs, stop); });
    startWatch(plan);
}

void ScreenCaptureRecorder::Session::startWatch(const CapturePlan &plan)
{
    const auto self = shared_from_this();
    CaptureWatch watch{
        .clock = m_dependencies.clock,
        .sampleQueue = m_dependencies.sampleQueue,
        .sources = m_sources,
        .mode = plan.mode,
        .displays = {},
        .stalled = [self](const QString &message) { self->tell(&ScreenCaptureRecorder::onStalled, message); },
        .missesPictures =
            [self](const QString &message) { self->tell(&ScreenCaptureRecorder::onPicturesMissing, message); },
        .goesOn = [self] { self->tell(&ScreenCaptureRecorder::onGoesOn); }};
    for (const CapturePlan::Display &display : plan.displays) {
        if (!display.context->signsOfLife.hasEnded())
            watch.displays.append(display.context);
    }
    m_watchTask.start([watch](std::stop_token stop) { return watchCapture(watch, stop); });
}

void ScreenCaptureRecorder::Session::cancelTasks()
{
    m_chunkTask.cancel();
    m_screenshotTask.cancel();
    m_foregroundAppTask.cancel();
    m_watchTask.cancel();
}

Task<> ScreenCaptureRecorder::Session::flushChunks(std::shared_ptr<Session> self, qint64 chunkSizeMs,
                                                   std::stop_token stop)
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

Task<> ScreenCaptureRecorder::Session::endAfterFailedBatch(std::shared_ptr<Session> self, qint64 recording)
{
    const auto turn = co_await self->m_turn.acquire(self->lifetime());
    if (turn && self->m_recording == recording)
        co_await self->endRecording(LastFlush::Skip);
}

Task<> ScreenCaptureRecorder::Session::endRecording(LastFlush lastFlush)
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

void ScreenCaptureRecorder::Session::publish(std::function<void(const ScreenCaptureRecorder &)> call)
{
    // By way of the application object: a receiver of our own would be destroyed within its own event by a callback
    // that destroys the recorder.
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [weak = weak_from_this(), call = std::move(call)] {
            if (const auto session = weak.lock(); session && session->m_owner)
                call(*session->m_owner);
        },
        Qt::QueuedConnection);
}

void ScreenCaptureRecorder::Session::publishStreamsDied(const QString &message)
{
    publish([message](const auto &owner) {
        if (const auto call = owner.onStreamsDied ? owner.onStreamsDied : owner.onError)
            call(message);
    });
}

CaptureSources::StreamsDied ScreenCaptureRecorder::Session::streamsDiedOutlet()
{
    return [home = m_home.get(), weak = weak_from_this()](const QString &message) {
        home->post([weak, message] {
            if (const auto session = weak.lock())
                session->publishStreamsDied(message);
        });
    };
}

CaptureSources::DisplaysChanged ScreenCaptureRecorder::Session::displaysChangedOutlet()
{
    return [home = m_home.get(), weak = weak_from_this()] {
        home->post([weak] {
            if (const auto session = weak.lock())
                session->tell(&ScreenCaptureRecorder::onDisplaysChanged);
        });
    };
}

void ScreenCaptureRecorder::Session::setPaused(bool paused)
{
    if (std::exchange(m_isPaused, paused) == paused)
        return;
    qCInfo(logScreenCapture, "screen capture %s", paused ? "paused" : "goes on after a pause");
    m_sources->setPaused(paused);
}

qint64 ScreenCaptureRecorder::Session::lostFrames() const
{
    return checkedAdd(m_sources->gate().bufferedFrameCount(), m_submitter.framesOnTheirWay());
}

void ScreenCaptureRecorder::Session::logLostFrames() const
{
    if (const qint64 lost = lostFrames(); lost > 0)
        qCCritical(logScreenCapture, "screen capture ended before the observer took frames=%lld", lost);
}

void ScreenCaptureRecorder::Session::shutDown()
{
    m_owner = nullptr;
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
std::future<void> ScreenCaptureRecorder::Session::endOf(SerialQueue &queue, std::function<void()> lastJob)
{
    const auto task = std::make_shared<std::packaged_task<void()>>(std::move(lastJob));
    auto end = task->get_future();
    queue.post([task] { (*task)(); });
    return end;
}

void ScreenCaptureRecorder::Session::awaitEnd(const std::future<void> &end, const SerialQueue &queue,
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

ScreenCaptureRecorder::ScreenCaptureRecorder(Dependencies dependencies)
    : m_session(std::make_shared<Session>(this, std::move(dependencies)))
{}

ScreenCaptureRecorder::~ScreenCaptureRecorder()
{
    m_session->shutDown();
}

Task<Result<>> ScreenCaptureRecorder::start(ObserverSettings settings, std::shared_ptr<LocalObserverAPI> api)
{
    return Session::start(m_session, std::move(settings), std::move(api));
}

Task<ScreenCaptureRecorder::StopOutcome> ScreenCaptureRecorder::stop(bool skipFlush)
{
    return Session::stop(m_session, skipFlush);
}

void ScreenCaptureRecorder::interruptWaiting()
{
    m_session->interruptWaiting();
}

void ScreenCaptureRecorder::setPaused(bool paused)
{
    m_session->setPaused(paused);
}

bool ScreenCaptureRecorder::isCapturing() const
{
    return m_session->isCapturing();
}

QString ScreenCaptureRecorder::diagnosticSummary() const
{
    return m_session->diagnosticSummary();
}

} // namespace ostrel
