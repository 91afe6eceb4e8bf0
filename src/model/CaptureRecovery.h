#pragma once

#include "base/Task.h"
#include "base/TaskScope.h"
#include "base/TaskSlot.h"
#include "capture/CaptureRecoveryPolicy.h"
#include "capture/SleepWakeMonitor.h"

#include <QObject>
#include <QString>
#include <memory>
#include <optional>
#include <stop_token>

namespace ostrel {

class Clock;
class ModelState;
class ObserverControl;
class RecordingControl;
class SerialQueue;
class WorkspaceEvents;

/// Keeps a recording going when its capture dies or stalls, when the system sleeps, when the displays change, and when
/// the program is replaced by a newer one. The recording itself, as the observer and the user see it, goes on
/// meanwhile; only when capture can't be had any more, it is ended. Main thread.
class CaptureRecovery : public QObject
{
    Q_OBJECT

public:
    struct Dependencies {
        Clock &clock;
        ModelState &state;
        ObserverControl &observer;
        RecordingControl &recording;
        WorkspaceEvents &workspace;
        SerialQueue &worker; ///< reads and writes the resume marker
    };

    /// What the dependencies name outlives this object.
    explicit CaptureRecovery(Dependencies dependencies);

    const CaptureRecoveryPolicy &recoveryPolicy() const { return m_recoveryPolicy; }

    /// Carries out what the policy has decided; each action but `none` first cancels the attempts under way.
    void perform(const CaptureRecoveryAction &action);
    /// Starts capture again, 2 s after each failure once more, as often as the policy grants; then gives up. At once
    /// where it fails because the user has declined it, has ended the sharing, or has not answered when asked.
    Task<> attemptCaptureResume(std::stop_token stop);

    /// Called before the program is replaced, while there is a recording or the end of one. Ends it, leaves the next
    /// run word of it, or of one that is asked for meanwhile, and then ends the observer's process. It takes the time
    /// that the observer takes for the last batch; where the screen hangs, 4 s at most.
    Task<> prepareForUpdateRelaunch(std::stop_token stop);
    /// Called once, at start-up: if the run before has left word, starts a recording 3 s later, unless there is one by
    /// then. The word is taken back in any case.
    void resumeRecordingAfterUpdateIfNeeded();

Q_SIGNALS:
    /// The user is told of a stall: starting capture again has not helped so far; or of missing pictures.
    void stallTold(const QString &message);

private:
    void willSleep();
    void displaysChanged();
    void captureStalled(const QString &message);
    void picturesMissing(const QString &message);
    void captureStartStalled(const QString &message);
    void captureStartEnded();
    void captureGoesOn();
    void tellOfStall();
    void tell(std::optional<QString> &told, const QString &message);
    void forgetStall();
    void forget();
    void stopForSleep();
    Task<> resumeOnChangedDisplays(std::stop_token stop);
    Task<> tellUnlessItGoesOn(std::stop_token stop);
    Task<> resumeAfterUpdate(std::stop_token stop);

    const Dependencies m_with;
    SleepWakeMonitor m_sleepWakeMonitor;
    CaptureRecoveryPolicy m_recoveryPolicy;
    std::shared_ptr<SystemHold> m_sleepHold; ///< from the announcement of a sleep until somebody has taken it
    int m_displayRestarts = 0;               ///< on changed displays, since capture was last seen to go on
    /// A stall that capture has not been seen to get over, in words.
    std::optional<QString> m_stall;
    std::optional<QString> m_toldStall; ///< the words that the user was told
    /// What the user was told of pictures that do not come, in this recording.
    std::optional<QString> m_missingPictures;
    /// What the user was told of a start of capture that waits for an answer.
    std::optional<QString> m_stalledStart;
    qint64 m_stallRestarts = 0; ///< because of the stall
    TaskSlot m_stallTask;
    TaskSlot m_displaysTask;
    TaskSlot m_captureResumeTask;
    TaskScope m_tasks;
};

} // namespace ostrel
