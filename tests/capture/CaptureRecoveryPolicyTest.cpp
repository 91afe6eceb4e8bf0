#include "capture/CaptureRecoveryPolicy.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

const CaptureRecoveryAction none{};
const CaptureRecoveryAction stopForSleep{.kind = CaptureRecoveryAction::Kind::stopForSleep};
const CaptureRecoveryAction resume{.kind = CaptureRecoveryAction::Kind::resume};

CaptureRecoveryAction giveUp(const QString &message)
{
    return {.kind = CaptureRecoveryAction::Kind::giveUp, .message = message};
}

TEST(CaptureRecoveryPolicy, fresh_isIdleWithFiveAttemptsToGrant)
{
    const CaptureRecoveryPolicy policy;
    EXPECT_EQ(policy.maxResumeAttempts, 5);
    EXPECT_FALSE(policy.isAsleep);
    EXPECT_FALSE(policy.pendingWakeResume);
    EXPECT_EQ(policy.attemptsRemaining, 0);
}

TEST(CaptureRecoveryPolicy, captureDied_resumesWithAFreshBudget)
{
    CaptureRecoveryPolicy policy{.attemptsRemaining = 2};
    EXPECT_EQ(policy.captureDied(), resume);
    EXPECT_EQ(policy.attemptsRemaining, 5);
}

TEST(CaptureRecoveryPolicy, captureDiesThreeTimesAsleep_nothingUntilWakeThenOneFreshBudget)
{
    CaptureRecoveryPolicy policy;
    EXPECT_EQ(policy.willSleep(true), stopForSleep);
    for (int death = 0; death < 3; ++death)
        EXPECT_EQ(policy.captureDied(), none);
    EXPECT_EQ(policy.attemptsRemaining, 0);
    EXPECT_EQ(policy.didWake(), resume);
    EXPECT_EQ(policy, (CaptureRecoveryPolicy{.attemptsRemaining = 5}));
}

TEST(CaptureRecoveryPolicy, captureThatWasNotRecordedBeforeSleepDiesAsleep_isResumedAtWake)
{
    CaptureRecoveryPolicy policy;
    EXPECT_EQ(policy.willSleep(false), none);
    EXPECT_EQ(policy.captureDied(), none);
    EXPECT_EQ(policy.didWake(), resume);
}

TEST(CaptureRecoveryPolicy, captureDiedWithAWakeResumePending_isFoldedIntoIt)
{
    CaptureRecoveryPolicy policy{.pendingWakeResume = true};
    EXPECT_EQ(policy.captureDied(), none);
    EXPECT_TRUE(policy.pendingWakeResume);
    EXPECT_EQ(policy.attemptsRemaining, 0);
}

TEST(CaptureRecoveryPolicy, sleepAndWakeWithoutRecording_noActionAtAll)
{
    CaptureRecoveryPolicy policy;
    EXPECT_EQ(policy.willSleep(false), none);
    EXPECT_TRUE(policy.isAsleep);
    EXPECT_EQ(policy.didWake(), none);
    EXPECT_EQ(policy, CaptureRecoveryPolicy());
}

TEST(CaptureRecoveryPolicy, sleepWhileResuming_takesTheBudgetBack)
{
    CaptureRecoveryPolicy policy;
    policy.captureDied();
    EXPECT_EQ(policy.willSleep(true), stopForSleep);
    EXPECT_EQ(policy.attemptsRemaining, 0);
}

TEST(CaptureRecoveryPolicy, wakeWithoutSleep_isNothing)
{
    CaptureRecoveryPolicy policy;
    EXPECT_EQ(policy.didWake(), none);
    EXPECT_EQ(policy, CaptureRecoveryPolicy());
}

TEST(CaptureRecoveryPolicy, fifthFailure_givesUpWithItsText)
{
    CaptureRecoveryPolicy policy;
    policy.captureDied();
    for (int failure = 1; failure < 5; ++failure)
        EXPECT_EQ(policy.resumeFailed(QString::number(failure)), none);
    EXPECT_EQ(policy.resumeFailed(QStringLiteral("5")), giveUp(QStringLiteral("5")));
    EXPECT_EQ(policy.attemptsRemaining, 0);
}

TEST(CaptureRecoveryPolicy, successAfterFailures_leavesNoAttempts)
{
    CaptureRecoveryPolicy policy;
    policy.captureDied();
    policy.resumeFailed(QStringLiteral("1"));
    policy.resumeSucceeded();
    EXPECT_EQ(policy, CaptureRecoveryPolicy());
}

TEST(CaptureRecoveryPolicy, resetAsleep_forgetsTheResumeButNotTheSleep)
{
    CaptureRecoveryPolicy policy;
    policy.willSleep(true);
    policy.reset();
    EXPECT_EQ(policy, CaptureRecoveryPolicy{.isAsleep = true});
    EXPECT_EQ(policy.didWake(), none);
}

TEST(CaptureRecoveryPolicyDeathTest, attemptsBelowTheSmallestNumber_areFatal)
{
    CaptureRecoveryPolicy policy{.attemptsRemaining = std::numeric_limits<qint64>::min()};
    EXPECT_DEATH(policy.resumeFailed({}), "overflow");
}

} // namespace
