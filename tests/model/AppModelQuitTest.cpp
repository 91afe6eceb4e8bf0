#include "ModelFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class Quit : public RunningRecording
{};

TEST_F(Quit, whileRecording_flushesStopsEndsTheChildAndTerminates)
{
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop();
    m_model->quit();
    settle();
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_EQ(child().terminateCount, 1);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
}

TEST_F(Quit, afterwards_nothingIsPolledStartedOrTerminatedAgain)
{
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop();
    m_model->quit();
    m_model->quit();
    settle();
    m_observer.forgetRequests();
    m_model->toggleRecording();
    m_model->quit();
    advance(60s);
    EXPECT_EQ(m_observer.endpoints(), QStringList());
    EXPECT_EQ(m_launcher.children().size(), 1);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
}

TEST_F(Quit, stopOfTheObserverFails_goesOn)
{
    m_observer.expect(postFrames, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_observer.expect(postStop, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_observer.expect(postStop, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_model->quit();
    settle();
    EXPECT_EQ(child().terminateCount, 1);
    EXPECT_EQ(m_events.constLast(), terminated);
}

TEST_F(Quit, duringAStopWithARestartPending_waitsForTheStopAndStartsNothing)
{
    m_observer.expect(postFrames, statusAnswer(true));
    const auto stop = m_observer.expectHeld(postStop);
    m_model->toggleRecording();
    settle();
    m_model->toggleRecording();
    m_model->quit();
    settle();
    EXPECT_EQ(child().terminateCount, 0);
    m_observer.expect(postStop, statusAnswer(false));
    stop->release(statusAnswer(false));
    settle();
    EXPECT_EQ(m_observer.count(postStart), 0);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
}

TEST_F(Quit, asSoonAsTheRecordingHasEnded_pendingRestartIsNotBegun)
{
    m_observer.expect(postFrames, statusAnswer(true));
    const auto stop = m_observer.expectHeld(postStop);
    m_model->toggleRecording();
    settle();
    m_model->toggleRecording();
    QObject::connect(m_model.get(), &AppModel::recordingEnded, m_model.get(), &AppModel::quit);
    m_observer.expect(postStop, statusAnswer(false));
    stop->release(statusAnswer(false));
    settle();
    EXPECT_EQ(m_observer.count(postStart), 0);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
}

class QuitIdle : public ModelFixture
{};

TEST_F(QuitIdle, notRecording_asksTheObserverToStopAndTerminates)
{
    launch();
    m_observer.expect(postStop, statusAnswer(false));
    m_model->quit();
    settle();
    EXPECT_EQ(commands(), QStringList(postStop));
    EXPECT_EQ(m_events, QStringList(terminated));
}

TEST_F(QuitIdle, whileTheStartIsOnItsWay_waitsForItsAnswerThenStops)
{
    launch();
    const auto start = m_observer.expectHeld(postStart);
    m_model->toggleRecording();
    settle();
    m_model->quit();
    settle();
    EXPECT_EQ(m_events, QStringList());
    m_observer.expect(postStop, statusAnswer(false));
    start->release(statusAnswer(true));
    settle();
    EXPECT_EQ(commands(), QStringList({postStart, postStop}));
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    EXPECT_FALSE(m_recorder->isCapturing());
}

TEST_F(QuitIdle, childGone_isNotStartedAgain)
{
    launch();
    child().running = false;
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_observer.expect(postStop, FakeHttpTransport::failure(Fault::ConnectionRefused));
    m_model->quit();
    advance(10s);
    EXPECT_EQ(m_launcher.children().size(), 1);
    EXPECT_EQ(m_events, QStringList(terminated));
}

class ModelDestroyed : public ModelFixture
{};

TEST_F(ModelDestroyed, atEveryStageOfAStart_nothingIsTouchedAfterwards)
{
    launch();
    m_model->toggleRecording(); // the permission check is on its way
    m_model.reset();
    settle();

    m_launcher.allowLaunches();
    m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused));
    build();
    m_model->toggleRecording();
    advance(1s); // between two attempts
    m_model.reset();

    m_observer.always(getStatus, statusAnswer(false));
    build();
    const auto start = m_observer.expectHeld(postStart);
    m_model->toggleRecording();
    settle();
    m_model.reset();
    EXPECT_TRUE(start->wasCancelled());
    EXPECT_EQ(m_events, QStringList());
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

TEST_F(ModelDestroyed, duringAStop_nothingIsTouchedAfterwards)
{
    launch();
    record();
    const auto frames = m_observer.expectHeld(postFrames);
    m_model->stopRecording();
    settle();
    m_model.reset();
    EXPECT_TRUE(frames->wasCancelled());
    EXPECT_EQ(m_events, QStringList());
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

} // namespace
