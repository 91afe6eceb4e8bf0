#include "ModelFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class StartRecording : public ModelFixture
{};

TEST_F(StartRecording, press_bringsBothSidesUp)
{
    launch();
    bool recording = false;
    QObject::connect(m_model.get(), &AppModel::recordingChanged, [&recording](bool now) { recording = now; });
    record();
    EXPECT_TRUE(recording);
    EXPECT_EQ(m_model->recordButtonTitle(), QStringLiteral("Stop recording"));

    m_observer.expect(postFrames, statusAnswer(true));
    advance(20s);
    EXPECT_EQ(commands(), QStringList(postFrames));
    m_model.reset();
}

TEST_F(StartRecording, screenCaptureNotGranted_nothingIsSentAndTheTextSaysSo)
{
    m_screenGranted = false;
    launch();
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_model->helperError(), text("Screen Recording permission needed in System Settings"));
    EXPECT_EQ(commands(), QStringList());
    EXPECT_EQ(m_events, QStringList(startFailed));

    advance(3s);
    EXPECT_EQ(m_model->helperError(), text("Screen Recording permission needed in System Settings"));
    m_screenGranted = true;
    advance(1500ms);
    EXPECT_EQ(m_model->helperError(), std::nullopt) << "its cause is gone";
}

TEST_F(StartRecording, deadChild_isStartedFirst)
{
    launch();
    child().running = false;
    m_launcher.expectLaunch();
    record();
}

TEST_F(StartRecording, observerDown_failsAfterThirtyAttemptsInSevenAndAQuarterSeconds)
{
    launch();
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_model->toggleRecording();
    advance(7249ms);
    EXPECT_EQ(m_events, QStringList());
    EXPECT_EQ(m_model->helperError(), startingText);
    advance(1ms);
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_EQ(m_model->helperError(), words(Fault::ConnectionRefused));
    EXPECT_EQ(commands(), QStringList());
    advance(3s);
    EXPECT_EQ(m_model->helperError(), words(Fault::ConnectionRefused)) << "polling keeps it";

    m_observer.always(getStatus, statusAnswer(false));
    advance(1500ms);
    EXPECT_EQ(m_model->helperError(), std::nullopt) << "its cause is gone";
}

TEST_F(StartRecording, observerComesUpWhileWaiting_recordingBegins)
{
    launch();
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_model->toggleRecording();
    advance(7s);
    m_observer.always(getStatus, statusAnswer(false));
    m_observer.expect(postStart, statusAnswer(true));
    advance(250ms);
    EXPECT_EQ(m_events, QStringList(started));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

TEST_F(StartRecording, noRepoRoot_failsAtOnceWithTheCause)
{
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    build(std::nullopt);
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_EQ(m_model->helperError(), text("Repo root not found"));
}

TEST_F(StartRecording, observerOfSomebodyElseRuns_itIsUsed)
{
    m_observer.always(getStatus, statusAnswer(false));
    build(std::nullopt);
    record();
}

TEST_F(StartRecording, startRefused_modelStaysIdle)
{
    launch();
    m_observer.expect(postStart, FakeHttpTransport::answer({}, 500));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_EQ(m_model->helperError(), words(Fault::BadServerResponse));
    EXPECT_EQ(commands(), QStringList(postStart));
    EXPECT_FALSE(m_recorder->isCapturing());
}

TEST_F(StartRecording, startRefused_statusIsAskedOnceForTheObserversReason)
{
    launch();
    m_observer.forgetRequests();
    ObserverStatus full;
    full.lastError = QStringLiteral("The disk is full.");
    m_observer.expect(postStart, FakeHttpTransport::answer({}, 507));
    m_observer.expect(getStatus, statusAnswer(false)); // whether it is there
    m_observer.expect(getStatus, FakeHttpTransport::answer(full.toJson()));
    std::optional<QString> reasonAtTheEnd;
    QObject::connect(m_model.get(), &AppModel::recordingEnded,
                     [&](RecordingEnd) { reasonAtTheEnd = m_model->status()->lastError; });
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_observer.endpoints(), QStringList({getStatus, postStart, getStatus}));
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_EQ(reasonAtTheEnd, full.lastError);
    EXPECT_EQ(m_model->helperError(), words(Fault::BadServerResponse));
}

TEST_F(StartRecording, startRefusedAndStatusFails_keepsTheWordsOfTheRefusal)
{
    launch();
    m_observer.expect(postStart, FakeHttpTransport::answer({}, 507));
    m_observer.expect(getStatus, statusAnswer(false));
    m_observer.expect(getStatus, FakeHttpTransport::failure(Fault::ConnectionClosed));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_EQ(m_model->helperError(), words(Fault::BadServerResponse));
}

TEST_F(StartRecording, quitWhileTheReasonOfARefusalIsAskedFor_doesNotWaitForIt)
{
    launch();
    m_observer.expect(postStart, FakeHttpTransport::answer({}, 507));
    m_observer.expect(getStatus, statusAnswer(false));
    const auto reason = m_observer.expectHeld(getStatus);
    m_observer.expect(postStop, statusAnswer(false));
    m_model->toggleRecording();
    settle();
    ASSERT_TRUE(reason->hasArrived());
    m_model->quit();
    settle();
    EXPECT_TRUE(reason->wasCancelled());
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
}

TEST_F(StartRecording, answerToStartLost_observerIsStoppedAgain)
{
    launch();
    m_observer.expect(postStart, FakeHttpTransport::failure(Fault::ConnectionClosed));
    m_observer.expect(postStop, statusAnswer(false));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_EQ(m_model->helperError(), words(Fault::ConnectionClosed));
    EXPECT_EQ(commands(), QStringList({postStart, postStop}));
}

TEST_F(StartRecording, observerAnswersThatItDoesNotRecord_captureIsNotStarted)
{
    launch();
    m_observer.expect(postStart,
                      FakeHttpTransport::answer(R"({"running":false,"chunkIndex":0,"lastError":"The disk is full."})"));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_EQ(m_model->helperError(), text("The disk is full."));
    EXPECT_FALSE(m_recorder->isCapturing());
}

TEST_F(StartRecording, recorderFailsAfterTheObserverStarted_observerIsStoppedAndTheModelIsIdle)
{
    launch();
    m_displays.show({});
    m_observer.expect(postStart, statusAnswer(true));
    m_observer.expect(postStop, statusAnswer(false));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_EQ(commands(), QStringList({postStart, postStop}));
    EXPECT_EQ(m_model->helperError(), text("No capturable display found"));
    EXPECT_FALSE(m_model->status()->running);
    EXPECT_FALSE(m_model->isRecording());
}

TEST_F(StartRecording, recorderFailsAndTheStopToo_errorOfTheRecorderIsShown)
{
    launch();
    m_displays.show({});
    m_observer.expect(postStart, statusAnswer(true));
    m_observer.expect(postStop, FakeHttpTransport::answer({}, 500));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_EQ(m_model->helperError(), text("No capturable display found"));
}

TEST_F(StartRecording, pressedTwiceWhileStarting_startsOnce)
{
    launch();
    const auto start = m_observer.expectHeld(postStart);
    m_model->toggleRecording();
    m_model->toggleRecording();
    settle();
    m_model->toggleRecording();
    start->release(statusAnswer(true));
    settle();
    EXPECT_EQ(m_events, QStringList(started));
    EXPECT_EQ(m_observer.count(postStart), 1);
}

TEST_F(StartRecording, stoppedWhileWaitingForTheObserver_endsAtOnce)
{
    launch();
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_model->toggleRecording();
    advance(1s);
    m_observer.expect(postStop, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_model->stopRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    m_observer.always(getStatus, statusAnswer(false));
    advance(10s);
    EXPECT_EQ(commands(), QStringList(postStop));
}

TEST_F(StartRecording, stoppedWhileTheStartIsOnItsWay_stopFollowsItsAnswer)
{
    launch();
    const auto start = m_observer.expectHeld(postStart);
    m_model->toggleRecording();
    settle();
    m_model->stopRecording();
    settle();
    EXPECT_FALSE(start->wasCancelled());
    EXPECT_EQ(commands(), QStringList(postStart));
    EXPECT_TRUE(m_model->stoppingRecording());

    m_observer.expect(postStop, statusAnswer(false));
    start->release(statusAnswer(true));
    settle();
    EXPECT_EQ(commands(), QStringList({postStart, postStop}));
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_FALSE(m_model->stoppingRecording());
}

TEST_F(StartRecording, statusSentBeforeTheStartIsAnsweredAfterIt_doesNotStopTheRecording)
{
    launch();
    const auto lateStatus = m_observer.expectHeld(getStatus);
    advance(1500ms);
    ASSERT_TRUE(lateStatus->hasArrived());
    record();
    lateStatus->release(statusAnswer(false));
    settle();
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_TRUE(m_recorder->isCapturing());
    advance(1500ms);
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_EQ(m_events, QStringList());
}

TEST_F(StartRecording, pressedWhileTheRecorderStarts_bothSidesAreStopped)
{
    launch();
    holdRecorder();
    m_observer.expect(postStart, statusAnswer(true));
    m_model->toggleRecording();
    settle();
    EXPECT_TRUE(m_model->isRecording());
    m_model->toggleRecording();
    settle();
    EXPECT_TRUE(m_model->stoppingRecording());

    m_observer.expect(postFrames, statusAnswer(true));
    m_observer.expect(postStop, statusAnswer(false));
    releaseRecorder();
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(commands().constLast(), postStop);
    EXPECT_EQ(m_events, QStringList(endedByRequest));
}

TEST_F(StartRecording, observerStopsWhileTheRecorderStarts_captureDoesNotGoOn)
{
    launch();
    holdRecorder();
    m_observer.expect(postStart, statusAnswer(true));
    m_model->toggleRecording();
    advance(1500ms);
    EXPECT_FALSE(m_model->isRecording());
    releaseRecorder();
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(commands(), QStringList(postStart));
    EXPECT_EQ(m_events, QStringList(observerStopped));
}

} // namespace
