#include "ModelFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class StopRecording : public RunningRecording
{};

TEST_F(StopRecording, press_flushesThenStopsTheObserver)
{
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop();
    m_model->toggleRecording();
    EXPECT_TRUE(m_model->stoppingRecording());
    EXPECT_FALSE(m_model->isRecording());
    EXPECT_EQ(m_model->recordButtonTitle(), QStringLiteral("Start recording"));
    settle();
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_FALSE(m_model->stoppingRecording());
    EXPECT_FALSE(m_recorder->isCapturing());
    advance(60s);
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
}

TEST_F(StopRecording, observerNamesNoSessionAfterwards_isAnOrdinaryStop)
{
    const ObserverStatus atRest;
    m_observer.expect(postFrames, statusAnswer(true));
    m_observer.expect(postStop, FakeHttpTransport::answer(atRest.toJson()));
    m_observer.always(getStatus, FakeHttpTransport::answer(atRest.toJson()));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

TEST_F(StopRecording, pressedTwiceDuringTheStop_startsExactlyOnceAfterIt)
{
    m_observer.expect(postFrames, statusAnswer(true));
    const auto stop = m_observer.expectHeld(postStop);
    m_model->toggleRecording();
    settle();
    m_model->toggleRecording();
    EXPECT_TRUE(m_model->pendingRecordingRestart());
    EXPECT_EQ(m_model->recordButtonTitle(), QStringLiteral("Loading..."));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_observer.count(postStart), 0);

    m_observer.expect(postStart, statusAnswer(true));
    m_observer.always(getStatus, statusAnswer(false));
    stop->release(statusAnswer(false));
    settle();
    EXPECT_EQ(commands(), QStringList({postFrames, postStop, postStart}));
    EXPECT_EQ(m_events, QStringList({endedByRequest, started}));
    EXPECT_FALSE(m_model->pendingRecordingRestart());
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_TRUE(m_recorder->isCapturing());
}

TEST_F(StopRecording, stopAskedForAgainDuringTheStop_givesUpTheRestart)
{
    m_observer.expect(postFrames, statusAnswer(true));
    const auto stop = m_observer.expectHeld(postStop);
    m_model->stopRecording();
    settle();
    m_model->toggleRecording();
    m_model->stopRecording();
    m_observer.always(getStatus, statusAnswer(false));
    stop->release(statusAnswer(false));
    advance(10s);
    EXPECT_EQ(m_observer.count(postStop), 1);
    EXPECT_EQ(m_events, QStringList(endedByRequest));
}

TEST_F(StopRecording, stopOfTheObserverFails_isCompletedAllTheSame)
{
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop(false);
    m_model->toggleRecording();
    settle();
    EXPECT_FALSE(m_model->stoppingRecording());
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(m_events, QStringList(endedByRequest));
}

TEST_F(StopRecording, stopOfTheObserverFails_pendingRestartIsHonoured)
{
    m_observer.expect(postFrames, statusAnswer(true));
    const auto stop = m_observer.expectHeld(postStop);
    m_model->toggleRecording();
    settle();
    m_model->toggleRecording();
    m_observer.expect(postStart, statusAnswer(true));
    stop->release(FakeHttpTransport::failure(Fault::TimedOut));
    settle();
    EXPECT_EQ(m_events, QStringList({endedByRequest, started}));
    EXPECT_TRUE(m_recorder->isCapturing());
}

TEST_F(StopRecording, statusSentBeforeTheStopIsAnsweredAfterIt_doesNotRevive)
{
    m_observer.expect(postFrames, statusAnswer(true));
    const auto lateStatus = m_observer.expectHeld(getStatus);
    advance(1500ms);
    expectStop();
    m_model->toggleRecording();
    settle();
    lateStatus->release(statusAnswer(true));
    settle();
    EXPECT_FALSE(m_model->isRecording());
}

TEST_F(StopRecording, lastBatchRefused_isAFailureWithItsText)
{
    m_observer.expect(postFrames, FakeHttpTransport::answer({}, 507));
    m_observer.expect(postStop, statusAnswer(false)); // the recorder's own
    const auto stop = m_observer.expectHeld(postStop);
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_model->helperError(), words(Fault::BadServerResponse));
    stop->release(statusAnswer(false));
    settle();
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_model->helperError(), words(Fault::BadServerResponse));
    EXPECT_FALSE(m_model->stoppingRecording());
}

TEST_F(StopRecording, observerStopsByItself_captureEndsWithoutAFlush)
{
    m_observer.always(getStatus, statusAnswer(false));
    advance(1500ms);
    EXPECT_EQ(m_events, QStringList(observerStopped));
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_FALSE(m_model->isRecording());
    advance(60s);
    EXPECT_EQ(commands(), QStringList());
}

TEST_F(StopRecording, observerIsStartedAnewByItself_captureEndsAndTheModelIsIdle)
{
    child().running = false;
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_launcher.expectLaunch();
    advance(1500ms);
    EXPECT_EQ(m_launcher.children().size(), 2);
    EXPECT_EQ(m_model->helperError(), startingText);
    m_observer.always(getStatus, successorAnswer());
    advance(1500ms);
    EXPECT_EQ(m_events, QStringList(observerEnded));
    EXPECT_FALSE(m_model->isRecording());
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded());
    EXPECT_EQ(commands(), QStringList());
}

TEST_F(StopRecording, answerToABatchSaysStopped_captureEnds)
{
    m_observer.expect(postFrames, statusAnswer(false));
    m_observer.always(getStatus, statusAnswer(true));
    advance(20s);
    EXPECT_EQ(m_events, QStringList(observerStopped));
    EXPECT_FALSE(m_recorder->isCapturing());
}

TEST_F(StopRecording, pressedRightAfterTheObserverStopped_startsAgain)
{
    m_observer.always(getStatus, statusAnswer(false));
    advance(1500ms);
    m_observer.expect(postStart, statusAnswer(true));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList({observerStopped, started}));
    EXPECT_TRUE(m_recorder->isCapturing());
}

TEST_F(StopRecording, batchRefused_observerIsAskedOnceAndTheTextStays)
{
    m_observer.expect(postFrames, FakeHttpTransport::answer({}, 507));
    const auto stop = m_observer.expectHeld(postStop);
    advance(20s);
    ASSERT_TRUE(stop->hasArrived());
    EXPECT_FALSE(m_model->isRecording());
    m_observer.always(getStatus, statusAnswer(false));
    stop->release(statusAnswer(false));
    settle();
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_model->helperError(), words(Fault::BadServerResponse));
    EXPECT_FALSE(m_recorder->isCapturing());
    advance(60s);
    EXPECT_EQ(m_observer.count(postStop), 1);
    EXPECT_EQ(m_model->helperError(), words(Fault::BadServerResponse));
}

TEST_F(StopRecording, batchAndItsStopRefused_observerIsAskedAgain)
{
    m_observer.expect(postFrames, FakeHttpTransport::answer({}, 507));
    m_observer.expect(postStop, FakeHttpTransport::answer({}, 500));
    m_observer.expect(postStop, statusAnswer(false));
    advance(20s);
    EXPECT_EQ(commands(), QStringList({postFrames, postStop, postStop}));
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_FALSE(m_model->isRecording());
}

TEST_F(StopRecording, observerDiesAndABatchFails_itsTextOutlivesTheNewStart)
{
    advance(19900ms);
    child().running = false;
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_observer.expect(postFrames, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_observer.expect(postStop, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_observer.expect(postStop, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_launcher.expectLaunch();
    advance(100ms);
    ASSERT_EQ(m_launcher.children().size(), 2);
    EXPECT_EQ(m_events, QStringList(observerEnded));
    EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded());
    EXPECT_FALSE(m_model->isRecording());
    m_observer.always(getStatus, successorAnswer());
    advance(1500ms);
    EXPECT_FALSE(m_model->isRecording());
    EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded()) << "the recording has ended, and this is why";
}

} // namespace
