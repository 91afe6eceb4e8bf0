#include "ModelFixture.h"
#include "base/Fault.h"

#include <QDir>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// A recording that runs, whose capture the test can kill and keep from starting again.
class Recovery : public RunningRecording
{
protected:
    static constexpr auto toFiveFailures = 10s;

    Recovery()
    {
        m_displays.onShareableContent = [this, show = m_displays.onShareableContent]() -> Result<ShareableContent> {
            m_captureFails = false;
            const int attempt = ++m_starts;
            if (attempt <= m_startsThatFail)
                return std::unexpected(Error{{}, 0, QStringLiteral("attempt %1").arg(attempt)});
            return show();
        };
        QObject::connect(m_model.get(), &AppModel::helperErrorChanged,
                         [this] { m_shown.append(m_model->helperError().value_or(QString())); });
    }

    /// The display fails until capture is started again, and the first few of those starts fail too.
    void killCapture(int startsThatFail)
    {
        m_startsThatFail = startsThatFail;
        m_captureFails = true;
        m_observer.expect(postFrames, statusAnswer(true)); // what was captured before
        advance(toFiveFailures);
    }
    /// Sleeps, and lets the final flush come through.
    void sleep()
    {
        m_observer.expect(postFrames, statusAnswer(true));
        m_workspace.sleep();
        settle();
    }
    void wake()
    {
        m_workspace.wake();
        settle();
    }
    void expectRecordingGoesOn()
    {
        EXPECT_EQ(m_events, QStringList());
        EXPECT_TRUE(m_model->isRecording());
        EXPECT_TRUE(m_recorder->isCapturing());
        EXPECT_EQ(m_model->recoveryPolicy(), CaptureRecoveryPolicy());
    }

    std::atomic<int> m_starts = 0; ///< of capture, after the first
    std::atomic<int> m_startsThatFail = 0;
    QStringList m_shown; ///< every helper error
};

TEST_F(Recovery, captureDies_isFlushedAndStartedAgainWhileTheRecordingGoesOn)
{
    killCapture(0);
    EXPECT_EQ(commands(), QStringList(postFrames));
    EXPECT_EQ(m_starts, 1);
    expectRecordingGoesOn();
    const auto taken = m_displays.captures.size();
    advance(4s);
    EXPECT_EQ(m_displays.captures.size(), taken + 2);
}

TEST_F(Recovery, twoStartsFailAndTheThirdSucceeds_failuresAreNeverShown)
{
    killCapture(2);
    EXPECT_EQ(m_model->recoveryPolicy().attemptsRemaining, 4);
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_TRUE(m_model->isRecording());
    advance(4s);
    EXPECT_EQ(m_starts, 3);
    expectRecordingGoesOn();
    EXPECT_EQ(m_shown, QStringList());
}

TEST_F(Recovery, success_clearsAnErrorThatIsShown)
{
    killCapture(1);
    m_launcher.expectFailure(faultError(Fault::NoSuchProgram, QStringLiteral("node")));
    child().running = false;
    m_model->startHelper();
    ASSERT_NE(m_model->helperError(), std::nullopt);
    child().running = true;
    advance(2s);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

TEST_F(Recovery, fiveStartsFail_fourWaitsThenGivenUpOnceWithTheFifthText)
{
    killCapture(5);
    advance(7999ms);
    EXPECT_EQ(m_starts, 4);
    EXPECT_EQ(m_events, QStringList());
    EXPECT_EQ(m_shown, QStringList());
    expectStop();
    advance(1ms);
    EXPECT_EQ(m_starts, 5);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_model->helperError(), text("attempt 5"));
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_FALSE(m_model->isRecording());
    advance(60s);
    EXPECT_EQ(m_starts, 5);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_model->helperError(), text("attempt 5"));
}

/// The desktop says that the user has decided against capture, or has not answered when asked.
class UsersTurn : public Recovery, public testing::WithParamInterface<Fault>
{};

TEST_P(UsersTurn, startThatFailsOfIt_isNotTriedAgainAndTheRecordingEndsAtOnce)
{
    m_displays.onShareableContent = [this]() -> Result<ShareableContent> {
        m_captureFails = false;
        ++m_starts;
        return std::unexpected(faultError(GetParam()));
    };
    m_captureFails = true;
    m_observer.expect(postFrames, statusAnswer(true));
    m_observer.expect(postStop, statusAnswer(false));
    advance(toFiveFailures);
    m_observer.always(getStatus, statusAnswer(false));
    EXPECT_EQ(m_events, QStringList(captureFailed));
    advance(60s);
    EXPECT_EQ(m_starts, 1);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_model->helperError(), words(GetParam()));
    EXPECT_EQ(m_model->recoveryPolicy(), CaptureRecoveryPolicy());
}

INSTANTIATE_TEST_SUITE_P(Recovery, UsersTurn,
                         testing::Values(Fault::ScreenSharingEnded, Fault::ScreenCaptureDeclined,
                                         Fault::ScreenQuestionUnanswered),
                         [](const auto &info) {
                             if (info.param == Fault::ScreenQuestionUnanswered)
                                 return "unanswered";
                             return info.param == Fault::ScreenSharingEnded ? "sharingEnded" : "declined";
                         });

TEST_F(Recovery, givenUp_statusIsAskedForAfterTheStop)
{
    sleep();
    advance(250ms); // so that no poll falls together with the end
    m_startsThatFail = 5;
    wake();
    m_observer.expect(postStop, statusAnswer(false));
    advance(7999ms);
    m_observer.forgetRequests();
    advance(1ms);
    EXPECT_THAT(m_observer.endpoints(), testing::ElementsAre(postStop, getStatus));
    EXPECT_EQ(m_events, QStringList(captureFailed));
}

TEST_F(Recovery, userStopsDuringAWait_noFurtherStartHappens)
{
    killCapture(5);
    advance(1s);
    expectStop();
    m_model->toggleRecording();
    advance(20s);
    EXPECT_EQ(m_starts, 1);
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(m_model->recoveryPolicy(), CaptureRecoveryPolicy());
    EXPECT_EQ(m_shown, QStringList());
}

TEST_F(Recovery, userStopsDuringAStart_captureThatStartedIsStoppedAgain)
{
    m_observer.always(postFrames, statusAnswer(true));
    holdRecorder();
    m_recorder->onStreamsDied(QStringLiteral("gone"));
    settle();
    ASSERT_FALSE(m_recorder->isCapturing());
    expectStop();
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList()) << "the start is waited for";
    releaseRecorder();
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_FALSE(m_recorder->isCapturing());
    advance(20s);
    EXPECT_EQ(m_starts, 1);
}

TEST_F(Recovery, observerStopsDuringAWait_noFurtherStartHappens)
{
    killCapture(5);
    m_observer.always(getStatus, statusAnswer(false));
    advance(20s);
    EXPECT_EQ(m_starts, 1);
    EXPECT_EQ(m_events, QStringList(observerStopped));
}

TEST_F(Recovery, batchFails_isNoRecoveryEvent)
{
    m_observer.expect(postFrames, FakeHttpTransport::answer({}, 507));
    m_observer.expect(postStop, statusAnswer(false));
    m_observer.always(getStatus, statusAnswer(true));
    advance(19900ms);
    m_observer.always(getStatus, statusAnswer(false));
    advance(10s);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_starts, 0);
}

TEST_F(Recovery, modelDestroyedDuringAWait_leavesNoTimer)
{
    killCapture(5);
    m_model.reset();
    settle();
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

class SleepAndWake : public Recovery
{};

TEST_F(SleepAndWake, sleepWhileRecording_isHeldUpUntilTheFinalFlushIsThrough)
{
    const auto batch = m_observer.expectHeld(postFrames);
    m_workspace.sleep();
    settle();
    ASSERT_TRUE(batch->hasArrived());
    EXPECT_TRUE(m_workspace.isHeldUp());
    batch->release(statusAnswer(true));
    settle();
    EXPECT_FALSE(m_workspace.isHeldUp());
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_TRUE(m_model->isRecording()) << "the observer is not asked to stop";
    EXPECT_EQ(commands(), QStringList(postFrames));
    wake();
    expectRecordingGoesOn();
    EXPECT_EQ(m_starts, 1);
}

TEST_F(SleepAndWake, flushThatFails_letsTheSystemSleepAndEndsTheRecording)
{
    m_observer.expect(postFrames, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_observer.always(postStop, statusAnswer(false));
    m_workspace.sleep();
    settle();
    EXPECT_FALSE(m_workspace.isHeldUp());
    EXPECT_EQ(m_events, QStringList(captureFailed));
    wake();
    advance(10s);
    EXPECT_EQ(m_starts, 0);
}

TEST_F(SleepAndWake, flushThatHangs_holdsTheSystemUpForFourSeconds)
{
    const auto batch = m_observer.expectHeld(postFrames);
    m_workspace.sleep();
    advance(3999ms);
    EXPECT_TRUE(m_workspace.isHeldUp());
    advance(1ms);
    EXPECT_FALSE(m_workspace.isHeldUp());
    wake();
    EXPECT_FALSE(m_recorder->isCapturing()) << "one after the other";
    batch->release(statusAnswer(true));
    settle();
    expectRecordingGoesOn();
}

TEST_F(SleepAndWake, captureDiesThreeTimesAsleep_nothingUntilWakeThenOneBudgetOfFive)
{
    sleep();
    m_startsThatFail = 5;
    for (int death = 0; death < 3; ++death)
        m_recorder->onStreamsDied(QStringLiteral("gone"));
    advance(60s);
    EXPECT_EQ(m_starts, 0);
    m_observer.expect(postStop, statusAnswer(false));
    wake();
    advance(8s);
    m_observer.always(getStatus, statusAnswer(false));
    advance(60s);
    EXPECT_EQ(m_starts, 5);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_shown, QStringList(QStringLiteral("attempt 5")));
}

TEST_F(SleepAndWake, sleepTwiceWithoutWaking_isOneResumeAtWake)
{
    sleep();
    m_workspace.sleep();
    settle();
    EXPECT_FALSE(m_workspace.isHeldUp());
    wake();
    EXPECT_EQ(m_starts, 1);
    expectRecordingGoesOn();
}

TEST_F(SleepAndWake, wakeWithoutSleep_isNothing)
{
    wake();
    EXPECT_EQ(m_starts, 0);
    EXPECT_EQ(commands(), QStringList());
    expectRecordingGoesOn();
}

TEST_F(SleepAndWake, sleepDuringARecovery_nothingMoreUntilWake)
{
    killCapture(2);
    m_workspace.sleep();
    advance(60s);
    EXPECT_EQ(m_starts, 1);
    wake();
    advance(2s);
    EXPECT_EQ(m_starts, 3);
    expectRecordingGoesOn();
}

TEST_F(SleepAndWake, userStopsAsleep_wakeResumesNothing)
{
    sleep();
    expectStop();
    m_model->toggleRecording();
    settle();
    wake();
    advance(10s);
    EXPECT_EQ(m_starts, 0);
    EXPECT_EQ(m_events, QStringList(endedByRequest));
}

TEST_F(SleepAndWake, hundredCycles_leaveNoThreadDescriptorOrTimerBehind)
{
    const auto entries = [](const char *folder) {
        return QDir(QString::fromLatin1(folder)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size();
    };
    sleep();
    wake();
    const auto threads = entries("/proc/self/task");
    const auto descriptors = entries("/proc/self/fd");
    const int timers = m_clock.pendingTimerCount();
    for (int cycle = 0; cycle < 100; ++cycle) {
        sleep();
        EXPECT_FALSE(m_workspace.isHeldUp());
        wake();
    }
    EXPECT_EQ(m_starts, 101);
    EXPECT_EQ(entries("/proc/self/task"), threads);
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
    EXPECT_EQ(m_clock.pendingTimerCount(), timers);
    expectRecordingGoesOn();
}

class SleepWithoutRecording : public ModelFixture
{};

TEST_F(SleepWithoutRecording, sleepThenWake_isNoActionAtAll)
{
    launch();
    m_workspace.sleep();
    settle();
    EXPECT_FALSE(m_workspace.isHeldUp());
    m_workspace.wake();
    advance(10s);
    EXPECT_EQ(commands(), QStringList());
    EXPECT_EQ(m_displays.captures.size(), 0u);
}

class ChangedDisplays : public Recovery
{
protected:
    ChangedDisplays()
    {
        m_displays.onHaveDisplaysChanged = [this] { return m_changed.load(); };
        m_observer.always(postFrames, statusAnswer(true));
    }

    std::atomic<bool> m_changed = false;
};

TEST_F(ChangedDisplays, changed_captureStartsAgainASecondLaterAndTheRecordingGoesOn)
{
    m_changed = true;
    advance(2s);
    EXPECT_EQ(m_starts, 0);
    EXPECT_TRUE(m_recorder->isCapturing()) << "what is left of the displays is captured meanwhile";
    advance(1s);
    EXPECT_EQ(m_starts, 1);
    EXPECT_EQ(commands(), QStringList(postFrames)) << "what was captured before";
    expectRecordingGoesOn();
}

TEST_F(ChangedDisplays, changeAfterChangeWithinASecond_isOneStart)
{
    m_changed = true;
    advance(2s);
    for (int change = 0; change < 3; ++change)
        m_recorder->onDisplaysChanged();
    m_changed = false;
    advance(10s);
    EXPECT_EQ(m_starts, 1);
    expectRecordingGoesOn();
}

TEST_F(ChangedDisplays, noneLeft_isTriedFiveTimesAndGivenUp)
{
    m_displays.onShareableContent = [this] {
        ++m_starts;
        return ShareableContent();
    };
    m_changed = true;
    m_observer.expect(postStop, statusAnswer(false));
    advance(11s); // noticed after two, started first after three
    m_observer.always(getStatus, statusAnswer(false));
    advance(20s);
    EXPECT_EQ(m_starts, 5);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_model->helperError(), text("No capturable display found"));
}

TEST_F(ChangedDisplays, lockedWithinTheSecond_startsAgainWhenItIsUnlocked)
{
    m_changed = true;
    advance(2s);
    m_changed = false;
    m_workspace.setLocked(true);
    advance(60s);
    EXPECT_EQ(m_starts, 0) << "no session is opened behind a lock screen";
    m_workspace.setLocked(false);
    advance(2s);
    EXPECT_EQ(m_starts, 1);
    expectRecordingGoesOn();
}

TEST_F(ChangedDisplays, sleepWithinTheSecond_isLeftToTheWake)
{
    m_changed = true;
    advance(2s);
    m_changed = false;
    m_workspace.sleep();
    advance(10s);
    EXPECT_EQ(m_starts, 0);
    wake();
    EXPECT_EQ(m_starts, 1);
    expectRecordingGoesOn();
}

TEST_F(ChangedDisplays, stoppedWithinTheSecond_startsNothing)
{
    m_changed = true;
    advance(2s);
    expectStop();
    m_model->toggleRecording();
    advance(10s);
    EXPECT_EQ(m_starts, 0);
    EXPECT_EQ(m_events, QStringList(endedByRequest));
}

class LockedSession : public Recovery
{
protected:
    std::size_t pictures() const { return m_displays.captures.size(); }
};

TEST_F(LockedSession, nothingIsCapturedUntilTheUnlockAndTheRecordingGoesOn)
{
    const auto before = pictures();
    m_workspace.setLocked(true);
    m_observer.always(postFrames, statusAnswer(true));
    advance(60s);
    EXPECT_EQ(pictures(), before);
    EXPECT_TRUE(m_model->isRecording());
    m_workspace.setLocked(false);
    advance(2s);
    EXPECT_EQ(pictures(), before + 1);
    expectRecordingGoesOn();
}

TEST_F(LockedSession, wakeIntoTheLock_capturesNothingUntilTheUnlock)
{
    m_workspace.setLocked(true);
    sleep();
    const auto before = pictures();
    wake();
    advance(10s);
    EXPECT_EQ(pictures(), before);
    m_workspace.setLocked(false);
    advance(2s);
    EXPECT_EQ(pictures(), before + 1);
}

class LockedFromTheBeginning : public ModelFixture
{};

TEST_F(LockedFromTheBeginning, recordingThatStarts_capturesNothing)
{
    m_workspace.setLocked(true);
    launch();
    record();
    advance(10s);
    EXPECT_EQ(m_displays.captures.size(), 0u);
}

} // namespace
