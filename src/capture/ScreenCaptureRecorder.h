#pragma once

#include "base/Error.h"
#include "base/Task.h"
#include "observer/ObserverSettings.h"
#include "observer/WireRecords.h"

#include <QString>
#include <chrono>
#include <functional>
#include <memory>

namespace ostrel {

class ActiveApplicationContext;
class Clock;
class DisplaySource;
class LocalObserverAPI;
class SerialQueue;

/// Captures the displays, keeps the frames that changed, and posts them to the observer in batches. Main thread; all
/// work on pixels happens on a queue of its own, and nothing here blocks the main thread.
///
/// Starts and stops are serialised: a second one waits for the first. Both run to their end even when nobody waits.
class ScreenCaptureRecorder
{
public:
    struct Dependencies {
        Clock &clock;
        DisplaySource &displays;
        ActiveApplicationContext &context;
        /// "com.tamsk.ostrel.screen-capture.samples": frames are taken and judged here, all mutable state lives here
        SerialQueue &sampleQueue;
        /// Where the foreground sampler reads the context, which may take long
        SerialQueue &contextQueue;
        qint32 processID = 0;
        std::optional<QString> bundleIdentifier;
        /// Called by the destructor when a job on one of the queues doesn't end in `patienceAtTheEnd`. Nothing that the
        /// job uses may go then, so it ends the process. Where it is unset, or returns, the job is waited for.
        std::function<void()> endWithoutWaiting = {};
        std::chrono::milliseconds patienceAtTheEnd{2'000};
    };

    /// What `dependencies` names outlives this object.
    explicit ScreenCaptureRecorder(Dependencies dependencies);
    /// Ends all tasks without a final flush, and waits for what is under way on both queues; see `endWithoutWaiting`
    /// for when that hangs. Await `stop` first where frames must not be lost; those that are, are logged.
    ~ScreenCaptureRecorder();
    ScreenCaptureRecorder(const ScreenCaptureRecorder &) = delete;
    ScreenCaptureRecorder &operator=(const ScreenCaptureRecorder &) = delete;

    /// All are called on the main thread, from the event loop, never from within `start` or `stop`.
    std::function<void(const ObserverStatus &)> onStatus;
    std::function<void(const QString &message)> onError;
    std::function<void(const QString &message)> onStreamsDied; ///< where it is unset, `onError` is called instead
    /// The displays are no longer those that capture was started on, or one of several streams has stopped; capture
    /// goes on with what is left of them until the owner starts it again. Once a recording.
    std::function<void()> onDisplaysChanged;
    /// For half a minute nothing has been done for a display, not even looked whether there is anything to be done.
    /// Called again after each further half minute. A stop or a start may then wait for whatever hangs.
    std::function<void(const QString &message)> onStalled;
    /// All displays are alive: 10 or 20 s after a start, and after a stall that is over.
    std::function<void()> onGoesOn;

    /// Begins a recording. Fails with domain "TamskOstrel.ScreenCapture": 1 no display, 2 no stream could be started;
    /// or with the display source's error. Nothing runs after a failure. A recording under way is stopped first.
    Task<Result<>> start(ObserverSettings settings, std::shared_ptr<LocalObserverAPI> api);

    /// Ends capture. Waits for a batch on its way; unless `skipFlush`, then posts what is buffered. Never fails, and
    /// does nothing when nothing runs.
    Task<> stop(bool skipFlush);

    /// Where a start under way waits for the user's answer to the desktop's question, it waits no longer, and fails.
    void interruptWaiting();

    /// While it is paused, nothing is captured, by recordings to come neither; what was captured before is still
    /// posted.
    void setPaused(bool paused);

    /// Whether capture runs (from a successful `start` until `stop` has ended it).
    bool isCapturing() const;

    /// The counters since the last start in one line. Main thread; waits for the frame under way, a few milliseconds.
    Task<QString> diagnosticSummary();

private:
    class Session;
    std::shared_ptr<Session> m_session;
};

} // namespace ostrel
