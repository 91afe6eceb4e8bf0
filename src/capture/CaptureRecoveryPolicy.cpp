#include "capture/CaptureRecoveryPolicy.h"

#include "base/Checked.h"

#include <utility>

namespace ostrel {

using Kind = CaptureRecoveryAction::Kind;

CaptureRecoveryAction CaptureRecoveryPolicy::captureDied()
{
    if (isAsleep || pendingWakeResume) {
        pendingWakeResume = true;
        return {};
    }
    attemptsRemaining = maxResumeAttempts;
    return {.kind = Kind::resume};
}

CaptureRecoveryAction CaptureRecoveryPolicy::willSleep(bool isRecording)
{
    isAsleep = true;
    if (!isRecording)
        return {};
    pendingWakeResume = true;
    attemptsRemaining = 0;
    return {.kind = Kind::stopForSleep};
}

CaptureRecoveryAction CaptureRecoveryPolicy::didWake()
{
    isAsleep = false;
    if (!std::exchange(pendingWakeResume, false))
        return {};
    attemptsRemaining = maxResumeAttempts;
    return {.kind = Kind::resume};
}

CaptureRecoveryAction CaptureRecoveryPolicy::resumeFailed(const QString &message)
{
    attemptsRemaining = checkedSubtract(attemptsRemaining, 1);
    if (attemptsRemaining > 0)
        return {};
    return {.kind = Kind::giveUp, .message = message};
}

void CaptureRecoveryPolicy::resumeSucceeded()
{
    attemptsRemaining = 0;
}

void CaptureRecoveryPolicy::reset()
{
    pendingWakeResume = false;
    attemptsRemaining = 0;
}

} // namespace ostrel
