#include "StalledScreenshots.h"
#include "support/LogRecorder.h"
#include "support/RunTask.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QString noAnswer = QStringLiteral("Screen capture has stalled: no answer from Display 1 (main)");
const QString noAnswerToAStart = QStringLiteral("Screen capture has stalled: no answer from the desktop");

TEST_F(StalledScreenshots, startThatHelps_isNeverShown)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    m_recorder->onStalled(noAnswer);
    settle();
    EXPECT_EQ(m_starts, 1);
    EXPECT_EQ(commands(), QStringList(postFrames)) << "what was captured before";
    advance(120s);
    EXPECT_EQ(m_starts, 1);
    EXPECT_EQ(m_shown, QStringList());
    EXPECT_EQ(m_events, QStringList());
    EXPECT_EQ(log.take(QtWarningMsg), QStringList(noAnswer));
    EXPECT_TRUE(log.take(QtInfoMsg).contains(QStringLiteral("screen capture goes on after a stall")));
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_TRUE(m_recorder->isCapturing());
}

TEST_F(StalledScreenshots, pictureThatHangs_isToldAfterAMinuteUntilCaptureGoesOn)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    hang();
    advance(69'999ms);
    EXPECT_EQ(m_shown, QStringList());
    advance(1ms);
    EXPECT_EQ(m_model->helperError(), noAnswer);
    EXPECT_EQ(log.take(QtCriticalMsg), QStringList(noAnswer + QStringLiteral("; starting it again has not helped")));
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_EQ(m_starts, 0) << "the queue that hangs starts nothing";
    advance(120s);
    EXPECT_EQ(m_shown, QStringList(noAnswer)) << "once";
    goOn();
    EXPECT_EQ(m_starts, 1);
    EXPECT_EQ(m_model->helperError(), noAnswer) << "a start alone doesn't show that it is over";
    advance(10s);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    EXPECT_EQ(m_events, QStringList());
    EXPECT_EQ(m_model->recoveryPolicy(), CaptureRecoveryPolicy());
}

TEST_F(StalledScreenshots, anotherErrorThanTheStalls_staysWhenCaptureGoesOn)
{
    hang();
    advance(70s);
    ASSERT_EQ(m_model->helperError(), noAnswer);
    m_launcher.expectFailure(faultError(Fault::NoSuchProgram, QStringLiteral("node")));
    child().running = false;
    m_model->startHelper();
    const auto other = m_model->helperError();
    ASSERT_NE(other, noAnswer);
    child().running = true;
    goOn();
    advance(10s);
    EXPECT_EQ(m_model->helperError(), other);
}

TEST_F(StalledScreenshots, stillScreen_isNoStall)
{
    m_pictureStays = true;
    advance(300s);
    EXPECT_EQ(m_starts, 0);
    EXPECT_EQ(m_shown, QStringList());
}

TEST_F(StalledScreenshots, lockedSession_isNoStall)
{
    m_workspace.setLocked(true);
    advance(300s);
    m_workspace.setLocked(false);
    advance(60s);
    EXPECT_EQ(m_starts, 0);
    EXPECT_EQ(m_shown, QStringList());
}

TEST_F(StalledScreenshots, sleep_isNoStall)
{
    m_workspace.sleep();
    settle();
    advance(300s);
    EXPECT_EQ(m_starts, 0);
    m_workspace.wake();
    settle();
    EXPECT_EQ(m_starts, 1);
    advance(60s);
    EXPECT_EQ(m_starts, 1);
    EXPECT_EQ(m_shown, QStringList());
}

TEST_F(StalledScreenshots, sleepDuringAStall_isToldOnlyWhenItIsStillOneAfterTheWake)
{
    hang();
    advance(45s);
    m_workspace.sleep();
    advance(300s);
    EXPECT_EQ(m_shown, QStringList()) << "nobody expects pictures of a machine that sleeps";
    m_workspace.wake();
    advance(29'999ms);
    EXPECT_EQ(m_shown, QStringList());
    advance(1ms);
    EXPECT_EQ(m_shown, QStringList(noAnswer));
    goOn();
}

TEST_F(StalledScreenshots, userStopsDuringAStall_endsTwoSecondsLaterWithAllThatWasRecordedAndSaysWhy)
{
    hang();
    advance(45s);
    expectStop();
    m_model->toggleRecording();
    advance(1999ms);
    EXPECT_EQ(m_events, QStringList());
    advance(1ms);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_EQ(m_model->helperError(), StatusTexts::captureDidNotAnswer());
    EXPECT_FALSE(m_model->stoppingRecording());
    EXPECT_FALSE(m_recorder->isCapturing());
    goOn();
    advance(120s);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(m_starts, 0);
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
}

TEST_F(StalledScreenshots, recordingStartedAfterAStopThatGaveUp_runsAsSoonAsTheScreenAnswers)
{
    hang();
    advance(10s);
    stopForGood();
    startAnew();
    advance(10s);
    EXPECT_FALSE(m_recorder->isCapturing());
    goOn();
    EXPECT_EQ(m_events, QStringList(started));
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    advance(20s);
    EXPECT_EQ(commands().last(), postFrames);
}

TEST_F(StalledScreenshots, startThatWaitsForTheScreen_isToldAfterHalfAMinuteUntilItStarts)
{
    QStringList said;
    QObject::connect(m_model.get(), &AppModel::captureStalled, [&said](const QString &message) { said += message; });
    hang();
    advance(10s);
    stopForGood();
    startAnew();
    advance(29'999ms);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    advance(1ms);
    EXPECT_EQ(m_model->helperError(), noAnswerToAStart);
    advance(300s);
    EXPECT_EQ(said, QStringList(noAnswerToAStart));
    EXPECT_EQ(m_model->helperError(), noAnswerToAStart);
    EXPECT_EQ(m_events, QStringList()) << "it is still to come";
    goOn();
    EXPECT_EQ(m_events, QStringList(started));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    advance(300s);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    EXPECT_EQ(said.size(), 1);
}

TEST_F(StalledScreenshots, startAfterAWakeThatWaitsForTheScreen_isToldUntilCaptureStarts)
{
    hang();
    advance(10s); // nobody has noticed anything by now
    m_workspace.sleep();
    advance(300s);
    m_workspace.wake();
    advance(29'999ms);
    EXPECT_EQ(m_shown, QStringList());
    advance(1ms);
    EXPECT_EQ(m_shown, QStringList(noAnswerToAStart));
    EXPECT_TRUE(m_model->isRecording());
    goOn();
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_EQ(m_events, QStringList());
}

TEST_F(StalledScreenshots, startThatIsAnsweredByAnErrorAtLast_isTriedAgainAndTheWordsAreTakenBack)
{
    hang();
    advance(10s);
    m_workspace.sleep();
    advance(10s);
    std::atomic<int> refusals = 1;
    m_displays.onShareableContent = [&refusals, show = m_displays.onShareableContent]() -> Result<ShareableContent> {
        if (refusals-- > 0)
            return std::unexpected(Error{.domain = {}, .code = 0, .localizedDescription = QStringLiteral("not now")});
        return show();
    };
    m_workspace.wake();
    advance(30s);
    ASSERT_EQ(m_model->helperError(), noAnswerToAStart);
    goOn();
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    EXPECT_FALSE(m_recorder->isCapturing());
    advance(2s);
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_EQ(m_shown, QStringList({noAnswerToAStart, QString()})) << "the error itself is never shown";
}

TEST_F(StalledScreenshots, anotherErrorThanTheStartsWait_staysWhenItStarts)
{
    hang();
    advance(10s);
    stopForGood();
    startAnew();
    advance(30s);
    ASSERT_EQ(m_model->helperError(), noAnswerToAStart);
    m_launcher.expectFailure(faultError(Fault::NoSuchProgram, QStringLiteral("node")));
    child().running = false;
    m_model->startHelper();
    const auto other = m_model->helperError();
    ASSERT_NE(other, noAnswerToAStart);
    child().running = true;
    goOn();
    EXPECT_EQ(m_model->helperError(), other);
}

TEST_F(StalledScreenshots, userGivesUpAStartThatHangs_endsTwoSecondsLaterAndSaysNothing)
{
    hang();
    advance(10s);
    stopForGood();
    startAnew();
    advance(30s);
    EXPECT_EQ(m_model->helperError(), noAnswerToAStart);
    expectStop();
    m_model->stopRecording();
    advance(1999ms);
    EXPECT_EQ(m_events, QStringList());
    advance(1ms);
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    goOn();
    EXPECT_FALSE(m_recorder->isCapturing());
}

TEST_F(StalledScreenshots, userQuitsDuringAStall_endsTwoSecondsLaterWithAllThatWasRecorded)
{
    hang();
    advance(45s);
    expectStop();
    m_model->quit();
    advance(1999ms);
    EXPECT_EQ(m_events, QStringList());
    advance(1ms);
    EXPECT_EQ(m_events, QStringList({captureFailed, terminated}));
    EXPECT_EQ(m_model->helperError(), StatusTexts::captureDidNotAnswer());
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_EQ(child().terminateCount, 1);
    EXPECT_THAT(m_model->diagnosticSummary().toStdString(), testing::HasSubstr("buffered=0"));
    goOn();
    EXPECT_EQ(m_events, QStringList({captureFailed, terminated}));
}

TEST_F(StalledScreenshots, systemShutsDownDuringAStallWithASlowObserver_endsAfterFourSecondsAndSaysWhatMayBeLost)
{
    hang();
    advance(10s);
    const auto batch = m_observer.expectHeld(postFrames);
    m_workspace.shutDown();
    advance(3999ms);
    EXPECT_TRUE(batch->hasArrived());
    EXPECT_EQ(m_events, QStringList());
    EXPECT_TRUE(m_workspace.isHeldUp());
    advance(1ms);
    EXPECT_EQ(m_events, QStringList({captureFailed, terminated}));
    EXPECT_EQ(m_model->helperError(), StatusTexts::lastPicturesNotDelivered());
    EXPECT_FALSE(m_workspace.isHeldUp());
}

TEST_F(StalledScreenshots, displaysChangeAndTheSessionIsLockedWhileAStopWaitsForTheScreen_theStopEndsAllTheSame)
{
    hang();
    advance(10s);
    expectStop();
    m_model->toggleRecording();
    m_recorder->onDisplaysChanged();
    m_workspace.setLocked(true);
    advance(2s);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    m_workspace.setLocked(false);
    goOn();
    advance(120s);
    EXPECT_EQ(m_starts, 0) << "nobody starts what the user has stopped";
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(m_model->helperError(), StatusTexts::captureDidNotAnswer());
}

TEST_F(StalledScreenshots, observerKilledWhileAStopWaitsForTheScreen_saysWhatIsLostAndSendsNothingTwice)
{
    hang();
    advance(10s);
    m_model->toggleRecording();
    child().running = false;
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_launcher.expectLaunch();
    advance(1500ms);
    ASSERT_EQ(m_launcher.children().size(), 2);
    m_observer.always(getStatus, successorAnswer());
    m_observer.always(postFrames, FakeHttpTransport::answer({}, 409));
    m_observer.always(postStop, successorAnswer());
    advance(500ms);
    EXPECT_EQ(m_events, QStringList(observerEnded));
    EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded());
    goOn();
    advance(60s);
    EXPECT_EQ(m_observer.count(postFrames), 1);
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded());
}

TEST_F(StalledScreenshots, sleepDuringAStall_theSystemIsHeldUpForTwoSecondsAndAllIsPosted)
{
    hang();
    advance(10s);
    m_workspace.sleep();
    advance(1999ms);
    EXPECT_TRUE(m_workspace.isHeldUp());
    advance(1ms);
    EXPECT_FALSE(m_workspace.isHeldUp());
    EXPECT_EQ(commands(), QStringList(postFrames));
    EXPECT_EQ(m_events, QStringList());
}

TEST_F(StalledScreenshots, captureThatGoesOnWhileTheUserQuits_losesNothing)
{
    hang();
    advance(45s);
    expectStop();
    m_model->quit();
    advance(1s);
    goOn();
    pumpUntil([this] { return m_events.size() > 1; }); // what hung has a long way through the queues
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    EXPECT_EQ(commands().mid(commands().size() - 2), QStringList({postFrames, postStop}));
    EXPECT_FALSE(m_recorder->isCapturing());
}

TEST_F(StalledScreenshots, stallThatLasts_isSaidOnce)
{
    QStringList said;
    QObject::connect(m_model.get(), &AppModel::captureStalled, [&said](const QString &message) { said += message; });
    hang();
    advance(300s);
    EXPECT_EQ(said, QStringList(noAnswer));
    goOn();
    advance(60s);
    EXPECT_EQ(said, QStringList(noAnswer));
}

} // namespace
