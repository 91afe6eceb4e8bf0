#pragma once

#include "capture/CaptureRecoveryAction.h"

#include <QtGlobal>

namespace ostrel {

/// Decides what becomes of a recording whose capture was interrupted. A value: each event changes it and tells what is
/// to be done, and nothing else happens here.
struct CaptureRecoveryPolicy {
    qint64 maxResumeAttempts = 5;   ///< starts granted to one recovery
    bool isAsleep = false;          ///< between will-sleep and did-wake
    bool pendingWakeResume = false; ///< capture is to be started again at the next wake
    qint64 attemptsRemaining = 0;   ///< starts left in the recovery under way

    /// Capture ended by itself, or what it captures is no longer what is there. One that does so while the system
    /// sleeps is started again at wake and not before.
    CaptureRecoveryAction captureDied();
    CaptureRecoveryAction willSleep(bool isRecording);
    CaptureRecoveryAction didWake();

    /// An attempt to start capture again failed.
    /// @return none when there is another one to come, giveUp with the message otherwise
    CaptureRecoveryAction resumeFailed(const QString &message);
    void resumeSucceeded();

    /// The user, or the observer, has started or ended a recording: what was to be recovered is no more.
    void reset();

    bool operator==(const CaptureRecoveryPolicy &) const = default;
};

} // namespace ostrel
