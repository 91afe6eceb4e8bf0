#pragma once

#include "base/AsyncLock.h"
#include "base/TaskSlot.h"
#include "capture/BatchSubmitter.h"
#include "capture/CaptureSources.h"
#include "capture/CaptureTasks.h"
#include "capture/FirstPicture.h"
#include "capture/QueuePatience.h"
#include "capture/RecorderNews.h"
#include "capture/ScreenCaptureRecorder.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <stop_token>

namespace ostrel {

/// The recorder's inside: begins and ends recordings, in turn, with what may hang in mind. Shared with its coroutines;
/// each holds it until it has ended, so that the recorder may go at any moment. Main thread.
class RecorderSession : public std::enable_shared_from_this<RecorderSession>
{
public:
    using Dependencies = ScreenCaptureRecorder::Dependencies;
    using StopOutcome = ScreenCaptureRecorder::StopOutcome;

    RecorderSession(const ScreenCaptureRecorder &owner, Dependencies dependencies);

    // As the recorder's.
    static Task<Result<>> start(std::shared_ptr<RecorderSession> self, ObserverSettings settings,
                                std::shared_ptr<LocalObserverAPI> api);
    static Task<StopOutcome> stop(std::shared_ptr<RecorderSession> self, bool skipFlush);
    void interruptWaiting();
    void setPaused(bool paused);
    bool isCapturing() const { return m_isCapturing; }
    bool hasLeftBehind() const { return m_sources->isLeftBehind(); }
    std::optional<QString> whyNoPicture() const { return m_firstPicture->whyNone(); }
    QString diagnosticSummary() const { return m_sources->gate().diagnosticSummary(); }

    /// The owner goes: ends everything, and returns when no job refers to what the dependencies name.
    void shutDown();

private:
    enum class LastFlush { Post, Skip };

    Task<Result<>> beginRecording(ObserverSettings settings, std::shared_ptr<LocalObserverAPI> api);
    Task<Result<CapturePlan>> makePlan(double frameFps);
    Task<Result<>> openSources(CapturePlan plan, ActiveRecordingContext context, qint64 intervalMs);
    void startTasks(const CapturePlan &plan, qint64 intervalMs, qint64 chunkSizeMs);
    void cancelTasks();
    Task<> endRecording(LastFlush lastFlush);

    static Task<> flushChunks(std::shared_ptr<RecorderSession> self, qint64 chunkSizeMs, std::stop_token stop);
    static Task<> endAfterFailedBatch(std::shared_ptr<RecorderSession> self, qint64 recording);

    void noteHurry();
    void leaveBehind();
    void tellOfLongWait();
    std::shared_ptr<CaptureSources> makeSources() const;

    qint64 lostFrames() const;
    void logLostFrames() const;
    static std::future<void> endOf(SerialQueue &queue, std::function<void()> lastJob);
    void awaitEnd(const std::future<void> &end, const SerialQueue &queue,
                  std::chrono::steady_clock::time_point deadline) const;

    /// For what must not be cut off by the task that does it.
    std::stop_token lifetime() const { return m_lifetime.get_token(); }

    const Dependencies m_dependencies;
    const std::shared_ptr<RecorderNews> m_news;
    const std::shared_ptr<FirstPicture> m_firstPicture = std::make_shared<FirstPicture>();
    std::shared_ptr<CaptureSources> m_sources; ///< others after they were left behind
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
    /// Noted on the sample queue, while displays are listed that the desktop may ask the user about first.
    const std::shared_ptr<std::atomic<bool>> m_mayAskUser = std::make_shared<std::atomic<bool>>(false);
    TaskSlot m_chunkTask;
    CaptureTasks m_captureTasks;
};

} // namespace ostrel
