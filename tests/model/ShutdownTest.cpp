#include "ModelFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class Shutdown : public RunningRecording
{
protected:
    static QString notDelivered() { return StatusTexts::lastPicturesNotDelivered(); }
};

TEST_F(Shutdown, announced_isHeldUpUntilBothSidesHaveStopped)
{
    m_observer.expect(postFrames, statusAnswer(true));
    const auto stop = m_observer.expectHeld(postStop);
    m_workspace.shutDown();
    settle();
    ASSERT_TRUE(stop->hasArrived());
    EXPECT_TRUE(m_workspace.isHeldUp());
    stop->release(statusAnswer(false));
    settle();
    EXPECT_FALSE(m_workspace.isHeldUp());
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    advance(60s);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated})) << "once";
}

TEST_F(Shutdown, observerThatDoesNotTakeTheLastBatch_isGivenUpAfterFourSecondsAndToldOf)
{
    const auto batch = m_observer.expectHeld(postFrames);
    m_workspace.shutDown();
    advance(3999ms);
    ASSERT_TRUE(batch->hasArrived());
    EXPECT_EQ(m_events, QStringList());
    EXPECT_TRUE(m_workspace.isHeldUp());
    advance(1ms);
    EXPECT_EQ(m_events, QStringList({captureFailed, terminated}));
    EXPECT_EQ(m_model->helperError(), notDelivered());
    EXPECT_FALSE(m_workspace.isHeldUp());
    EXPECT_EQ(child().terminateCount, 1);
    m_model.reset();
    settle();
    EXPECT_TRUE(batch->wasCancelled());
}

TEST_F(Shutdown, observerThatIsSlowToStopButHasEverything_isNoLoss)
{
    m_observer.expect(postFrames, statusAnswer(true));
    const auto stop = m_observer.expectHeld(postStop);
    m_workspace.shutDown();
    advance(4s);
    EXPECT_TRUE(stop->wasCancelled());
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

TEST_F(Shutdown, announcedDuringAPatientQuit_hurriesIt)
{
    const auto batch = m_observer.expectHeld(postFrames);
    m_model->quit();
    advance(30s);
    ASSERT_TRUE(batch->hasArrived());
    EXPECT_EQ(m_events, QStringList());
    m_workspace.shutDown();
    advance(4s);
    EXPECT_EQ(m_events, QStringList({captureFailed, terminated}));
}

TEST_F(Shutdown, announcedDuringAStopByTheUser_endsItOnce)
{
    const auto batch = m_observer.expectHeld(postFrames);
    m_model->toggleRecording();
    settle();
    m_workspace.shutDown();
    advance(4s);
    EXPECT_EQ(m_events, QStringList({captureFailed, terminated}));
    batch->release(statusAnswer(true));
    settle();
    EXPECT_EQ(m_events, QStringList({captureFailed, terminated}));
}

TEST_F(Shutdown, announcedDuringARecovery_startsNothingMore)
{
    m_observer.always(postFrames, statusAnswer(true));
    m_captureFails = true;
    m_displays.show({});
    advance(11s);
    expectStop();
    m_workspace.shutDown();
    settle();
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

class ShutdownWithoutRecording : public ModelFixture
{};

TEST_F(ShutdownWithoutRecording, announced_terminatesWithoutAWordOfARecording)
{
    launch();
    m_observer.expect(postStop, statusAnswer(false));
    m_workspace.shutDown();
    settle();
    EXPECT_EQ(m_events, QStringList(terminated));
    EXPECT_FALSE(m_workspace.isHeldUp());
}

} // namespace
