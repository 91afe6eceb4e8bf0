#pragma once

#include "base/Error.h"
#include "base/Task.h"
#include "observer/ObserverSettings.h"
#include "observer/WireRecords.h"

#include <QString>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

class ActiveApplicationContext;
class Clock;
class DisplaySource;
class LocalObserverAPI;
class RecorderSession;
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
        /// Called by the destructor when a job on one of the queues doesn't end in `patienceAtTheEnd`, or has hung
        /// since a stop. Nothing that the job uses may go then, so it ends the process. Where it is unset, or returns,
        /// the job is waited for.
        /// @param lostFrames those that the observer has not taken
        std::function<void(qint64 lostFrames)> endWithoutWaiting = {};
        std::chrono::milliseconds patienceAtTheEnd{2'000};
    };

    /// How long a stop waits for what captures. A picture takes some milliseconds; a window system that hangs, for
    /// ever.
    static constexpr std::chrono::seconds patienceOfAStop{2};

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
    /// For half a minute a start or a stop has waited for what captures, which does not answer. It goes on when it is
    /// answered, or when somebody wants its end.
    std::function<void(const QString &message)> onNoAnswer;
    /// For half a minute after a start the streams of these displays have answered, and have not sent one picture. A
    /// screen that is switched off, or doesn't change, may do so: capture goes on.
    std::function<void(const QString &message)> onPicturesMissing;
    /// All displays are alive: 10 or 20 s after a start, after a stall that is over, and when no picture is missing any
    /// more.
    std::function<void()> onGoesOn;

    /// Begins a recording. Fails with domain "TamskOstrel.ScreenCapture": 1 no display, 2 no stream could be started;
    /// or with the display source's error. Nothing runs after a failure. A recording under way is stopped first.
    Task<Result<>> start(ObserverSettings settings, std::shared_ptr<LocalObserverAPI> api);

    enum class StopOutcome {
        AtRest,
        /// What captures did not answer for `patienceOfAStop` and was left behind. What it had captured before was
        /// posted all the same; what it still brings is dropped. A start waits until it answers again.
        LeftBehind,
    };
    /// Ends capture. Waits for a batch on its way; unless `skipFlush`, then posts what is buffered. Never fails, and
    /// does nothing when nothing runs. A start under way that hangs is ended with Fault::Cancelled.
    Task<StopOutcome> stop(bool skipFlush);

    /// Whether what captures was left behind by a stop, or a start that was given up, since the last start that was
    /// not.
    bool hasLeftBehind() const;

    /// Somebody wants the end of a start under way: where it waits for the user's answer to the desktop's question, it
    /// waits no longer, and fails. Neither does it wait longer than `patienceOfAStop` for what captures, as a stop.
    void interruptWaiting();

    /// While it is paused, nothing is captured, by recordings to come neither; what was captured before is still
    /// posted.
    void setPaused(bool paused);

    /// Whether capture runs (from a successful `start` until `stop` has ended it).
    bool isCapturing() const;

    /// Why the observer has not got one picture yet from any recording of this object's, in a sentence; nothing once it
    /// has. What is still buffered or on its way doesn't count: ask after a stop.
    std::optional<QString> whyNoPicture() const;

    /// The counters since the last start in one line; the frame under way is not among them.
    QString diagnosticSummary() const;

private:
    const std::shared_ptr<RecorderSession> m_session;
};

} // namespace ostrel
