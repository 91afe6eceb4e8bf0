#include "ModelFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// What a stop waits for when something comes between.
enum class Awaited { LastBatch, StopRequest };

std::string nameOf(const testing::TestParamInfo<Awaited> &info)
{
    return info.param == Awaited::LastBatch ? "lastBatch" : "stopRequest";
}

class StopAwaiting : public RunningRecording, public testing::WithParamInterface<Awaited>
{
protected:
    /// Presses the button and brings the stop to where it waits.
    void stopAndHold()
    {
        if (GetParam() == Awaited::StopRequest)
            m_observer.expect(postFrames, statusAnswer(true));
        m_held = m_observer.expectHeld(GetParam() == Awaited::LastBatch ? postFrames : postStop);
        m_model->toggleRecording();
        settle();
        ASSERT_TRUE(m_held->hasArrived());
        EXPECT_TRUE(m_model->stoppingRecording());
        EXPECT_FALSE(m_model->isRecording());
    }

    /// What was awaited comes, and comes well.
    void goOn()
    {
        m_observer.always(getStatus, statusAnswer(false));
        if (GetParam() == Awaited::LastBatch)
            m_observer.expect(postStop, statusAnswer(false));
        m_held->release(statusAnswer(GetParam() == Awaited::LastBatch));
        settle();
    }

    /// The process ends: what was awaited breaks off, and nobody listens any more.
    void killObserver()
    {
        child().running = false;
        m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
        m_observer.always(postStop, FakeHttpTransport::failure(Fault::ConnectionRefused));
        m_held->release(FakeHttpTransport::failure(Fault::ConnectionClosed));
        settle();
    }

    void expectRest()
    {
        EXPECT_FALSE(m_recorder->isCapturing());
        EXPECT_FALSE(m_model->isRecording());
        EXPECT_FALSE(m_model->stoppingRecording());
        EXPECT_FALSE(m_model->pendingRecordingRestart());
    }

    std::shared_ptr<FakeHttpTransport::HeldAnswer> m_held;
};

TEST_P(StopAwaiting, tenPresses_startExactlyOnceAfterIt)
{
    stopAndHold();
    for (int i = 0; i < 10; ++i)
        m_model->toggleRecording();
    EXPECT_TRUE(m_model->pendingRecordingRestart());
    m_observer.expect(postStart, statusAnswer(true));
    goOn();
    EXPECT_EQ(m_events, QStringList({endedByRequest, started}));
    EXPECT_EQ(commands(), QStringList({postFrames, postStop, postStart}));
    EXPECT_TRUE(m_recorder->isCapturing());
}

TEST_P(StopAwaiting, pressesAndFurtherStops_theLastWordCounts)
{
    stopAndHold();
    m_model->toggleRecording();
    m_model->stopRecording();
    m_model->toggleRecording();
    m_model->stopRecording();
    goOn();
    advance(10s);
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    expectRest();
}

TEST_P(StopAwaiting, quitTwiceWithARestartPending_startsNothingAndTerminatesOnce)
{
    stopAndHold();
    m_model->toggleRecording();
    m_model->quit();
    m_model->toggleRecording();
    m_model->quit();
    settle();
    EXPECT_EQ(m_events, QStringList());
    m_observer.always(postStop, statusAnswer(false)); // a quit asks in any case
    goOn();
    advance(10s);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    EXPECT_EQ(m_observer.count(postStop), 2);
    EXPECT_EQ(m_observer.count(postStart), 0);
    EXPECT_EQ(child().terminateCount, 1);
    EXPECT_FALSE(m_recorder->isCapturing());
}

TEST_P(StopAwaiting, observerStopsByItself_isTheStopThatWasAskedFor)
{
    stopAndHold();
    m_observer.always(getStatus, statusAnswer(false));
    advance(3s);
    EXPECT_EQ(m_events, QStringList());
    goOn();
    advance(10s);
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    expectRest();
}

TEST_P(StopAwaiting, observerKilled_stopIsCompletedAndSaysSo)
{
    stopAndHold();
    killObserver();
    EXPECT_EQ(m_events, QStringList(observerEnded));
    EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded());
    expectRest();

    m_launcher.expectLaunch();
    advance(1500ms);
    m_observer.always(getStatus, successorAnswer());
    advance(10s);
    EXPECT_EQ(m_events, QStringList(observerEnded));
    EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded()) << "its successor does not undo it";
    expectRest();
}

TEST_P(StopAwaiting, observerKilledWithARestartPending_recordsWithItsSuccessor)
{
    stopAndHold();
    m_model->toggleRecording();
    m_launcher.expectLaunch();
    killObserver();
    EXPECT_EQ(m_events, QStringList(observerEnded));
    m_observer.always(getStatus, successorAnswer());
    m_observer.expect(postStart, statusAnswer(true));
    advance(250ms);
    EXPECT_EQ(m_events, QStringList({observerEnded, started}));
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

TEST_P(StopAwaiting, observerKilledWhileQuitting_terminatesAndStartsNoOther)
{
    stopAndHold();
    m_model->quit();
    killObserver();
    advance(10s);
    EXPECT_EQ(m_events, QStringList({observerEnded, terminated}));
    EXPECT_EQ(m_launcher.children().size(), 1);
}

TEST_P(StopAwaiting, observerRestartedOnOurWord_isReplacedWhenItHasTakenAll)
{
    stopAndHold();
    m_model->restartHelper();
    advance(1s);
    EXPECT_EQ(child().terminateCount, 0) << "it is still to take the last batch";
    m_launcher.expectLaunch();
    goOn();
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    ASSERT_EQ(m_launcher.children().size(), 2);
    EXPECT_EQ(m_launcher.children()[0]->terminateCount, 1);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    expectRest();
}

TEST_P(StopAwaiting, observerRestartedOnOurWordWithARestartPending_recordsWithItsSuccessor)
{
    stopAndHold();
    m_model->toggleRecording();
    m_model->restartHelper();
    m_launcher.expectLaunch();
    m_observer.expect(postStart, statusAnswer(true));
    goOn();
    m_observer.always(getStatus, statusAnswer(true));
    EXPECT_EQ(m_events, QStringList({endedByRequest, started}));
    advance(10s);
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_EQ(m_events, QStringList({endedByRequest, started}));
}

TEST_P(StopAwaiting, quitWhileARestartOfTheObserverWaits_startsNoOther)
{
    stopAndHold();
    m_model->restartHelper();
    m_model->quit();
    m_observer.always(postStop, statusAnswer(false)); // a quit asks in any case
    goOn();
    advance(10s);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    EXPECT_EQ(m_launcher.children().size(), 1);
}

INSTANTIATE_TEST_SUITE_P(StopRecording, StopAwaiting, testing::Values(Awaited::LastBatch, Awaited::StopRequest),
                         nameOf);

class StopOfTheObserver : public RunningRecording
{};

TEST_F(StopOfTheObserver, connectionBreaksButTheObserverLives_isAnOrdinaryStop)
{
    m_observer.expect(postFrames, statusAnswer(true));
    m_observer.expect(postStop, FakeHttpTransport::failure(Fault::ConnectionClosed));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

TEST_F(StopOfTheObserver, connectionBreaksAndSoDoesTheNext_saysThatTheObserverEnded)
{
    m_observer.expect(postFrames, statusAnswer(true));
    m_observer.expect(postStop, FakeHttpTransport::failure(Fault::ConnectionClosed));
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionClosed));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(observerEnded));
}

TEST_F(StopOfTheObserver, connectionBreaksInAnUnknownWayAndNobodyListens_saysThatTheObserverEnded)
{
    m_observer.expect(postFrames, statusAnswer(true));
    m_observer.expect(postStop, FakeHttpTransport::failure(Fault::NetworkFailed));
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(observerEnded));
}

TEST_F(StopOfTheObserver, hangsUntilTheTimeIsOver_isCompletedWithoutACallForDead)
{
    m_observer.expect(postFrames, statusAnswer(true));
    m_observer.expect(postStop, FakeHttpTransport::failure(Fault::TimedOut));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_FALSE(m_model->stoppingRecording());
}

} // namespace
