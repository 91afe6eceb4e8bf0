#include "StalledScreenshots.h"
#include "capture/RecordingResumeMarker.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// A recording that a newer version of the program is to take the place of.
template <class Recording>
class BeingReplaced : public Recording
{
protected:
    void prepare()
    {
        m_preparing.start([this](std::stop_token stop) { return this->m_model->prepareForUpdateRelaunch(stop); });
        this->settle();
    }

    TaskSlot m_preparing;
};

using BeforeAnUpdate = BeingReplaced<RunningRecording>;

TEST_F(BeforeAnUpdate, recording_isEndedAndLeavesWordAndTheChildEnds)
{
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop();
    prepare();
    EXPECT_FALSE(m_preparing.isRunning());
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(child().terminateCount, 1);
    child().running = false;
    advance(20s);
    EXPECT_EQ(m_launcher.children().size(), 1) << "the polling does not start it again";
    EXPECT_TRUE(RecordingResumeMarker::consume());
}

TEST_F(BeforeAnUpdate, notRecording_doesNothing)
{
    m_observer.expect(postFrames, statusAnswer(true));
    expectStop();
    m_model->toggleRecording();
    settle();
    prepare();
    EXPECT_EQ(child().terminateCount, 0);
    EXPECT_FALSE(RecordingResumeMarker::consume());
}

TEST_F(BeforeAnUpdate, observerThatTakesItsTime_isWaitedForAndNothingIsLost)
{
    const auto batch = m_observer.expectHeld(postFrames);
    prepare();
    advance(60s);
    EXPECT_TRUE(m_preparing.isRunning());
    EXPECT_EQ(child().terminateCount, 0);
    expectStop();
    batch->release(statusAnswer(true));
    settle();
    EXPECT_FALSE(m_preparing.isRunning());
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(child().terminateCount, 1);
}

TEST_F(BeforeAnUpdate, stopUnderWay_isWaitedForAndLeavesNoWord)
{
    const auto batch = m_observer.expectHeld(postFrames);
    m_model->toggleRecording();
    settle();
    prepare();
    EXPECT_TRUE(m_preparing.isRunning());
    expectStop();
    batch->release(statusAnswer(true));
    settle();
    EXPECT_FALSE(m_preparing.isRunning());
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_EQ(child().terminateCount, 1);
    EXPECT_FALSE(RecordingResumeMarker::consume());
}

TEST_F(BeforeAnUpdate, stopUnderWayWithARestartPending_leavesWordOfIt)
{
    const auto batch = m_observer.expectHeld(postFrames);
    m_model->toggleRecording();
    m_model->toggleRecording();
    settle();
    ASSERT_TRUE(m_model->pendingRecordingRestart());
    prepare();
    expectStop();
    batch->release(statusAnswer(true));
    settle();
    EXPECT_EQ(m_events, QStringList(endedByRequest)) << "the new version records";
    EXPECT_EQ(child().terminateCount, 1);
    EXPECT_TRUE(RecordingResumeMarker::consume());
}

TEST_F(BeforeAnUpdate, recordingThatIsAskedForMeanwhile_isLeftToTheNewVersion)
{
    const auto batch = m_observer.expectHeld(postFrames);
    m_model->toggleRecording();
    settle();
    prepare();
    m_model->toggleRecording();
    ASSERT_TRUE(m_model->pendingRecordingRestart());
    expectStop();
    expectStop(); // of the one that never begins
    batch->release(statusAnswer(true));
    settle();
    EXPECT_FALSE(m_preparing.isRunning());
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(commands(), QStringList({postFrames, postStop, postStop}));
    EXPECT_EQ(m_launcher.children().size(), 1);
    EXPECT_EQ(child().terminateCount, 1);
    EXPECT_TRUE(RecordingResumeMarker::consume());
}

class UpdateDuringAStall : public BeingReplaced<StalledScreenshots>
{
protected:
    UpdateDuringAStall()
    {
        hang();
        advance(10s);
    }
};

TEST_F(UpdateDuringAStall, observerThatAnswers_isPreparedTwoSecondsLaterWithAllThatWasRecorded)
{
    expectStop();
    prepare();
    advance(1999ms);
    EXPECT_TRUE(m_preparing.isRunning());
    advance(1ms);
    EXPECT_FALSE(m_preparing.isRunning());
    EXPECT_EQ(commands(), QStringList({postFrames, postStop}));
    EXPECT_EQ(child().terminateCount, 1);
}

TEST_F(UpdateDuringAStall, slowObserver_isPreparedAfterFourSecondsAndSaysWhatMayBeLost)
{
    const auto batch = m_observer.expectHeld(postFrames);
    prepare();
    advance(3999ms);
    EXPECT_TRUE(batch->hasArrived());
    EXPECT_TRUE(m_preparing.isRunning());
    advance(1ms);
    EXPECT_FALSE(m_preparing.isRunning());
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_model->helperError(), StatusTexts::lastPicturesNotDelivered());
    EXPECT_EQ(child().terminateCount, 1);
    EXPECT_TRUE(RecordingResumeMarker::consume());
}

TEST_F(UpdateDuringAStall, quitForTheNewVersion_doesNotWaitForWhatWasGivenUp)
{
    const auto batch = m_observer.expectHeld(postFrames);
    prepare();
    advance(4s);
    m_model->quit();
    settle();
    EXPECT_EQ(m_events, QStringList({captureFailed, terminated}));
    batch->release(statusAnswer(true));
    goOn();
    advance(60s);
    EXPECT_EQ(m_events, QStringList({captureFailed, terminated}));
}

TEST_F(UpdateDuringAStall, recordingThatIsAskedForMeanwhile_isLeftToTheNewVersion)
{
    const auto batch = m_observer.expectHeld(postFrames);
    m_model->toggleRecording();
    settle();
    prepare();
    m_model->toggleRecording();
    ASSERT_TRUE(m_model->pendingRecordingRestart());
    advance(4s);
    EXPECT_FALSE(m_preparing.isRunning());
    EXPECT_TRUE(RecordingResumeMarker::consume());
    m_model->quit();
    settle();
    EXPECT_EQ(m_events.last(), terminated);
    EXPECT_EQ(m_launcher.children().size(), 1);
}

TEST_F(UpdateDuringAStall, slowObserverOfAStopUnderWay_isGivenUpAsWell)
{
    const auto batch = m_observer.expectHeld(postFrames);
    m_model->toggleRecording();
    advance(30s);
    prepare();
    advance(4s);
    EXPECT_FALSE(m_preparing.isRunning());
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_FALSE(RecordingResumeMarker::consume());
}

class AfterAnUpdate : public ModelFixture
{
protected:
    AfterAnUpdate() { RecordingResumeMarker::write(); }
};

TEST_F(AfterAnUpdate, marker_startsARecordingAfterThreeSeconds)
{
    launch();
    EXPECT_FALSE(RecordingResumeMarker::consume()) << "it is gone already";
    advance(2999ms);
    EXPECT_EQ(commands(), QStringList());
    m_observer.expect(postStart, statusAnswer(true));
    m_observer.always(getStatus, statusAnswer(true));
    advance(1ms);
    EXPECT_EQ(m_events, QStringList(started));
}

TEST_F(AfterAnUpdate, markerWithARecordingUnderWay_isOnlyRemoved)
{
    launch();
    record();
    advance(10s);
    EXPECT_EQ(commands(), QStringList());
    EXPECT_EQ(m_events, QStringList());
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_FALSE(RecordingResumeMarker::consume());
}

TEST_F(AfterAnUpdate, markerWithAnObserverThatRecordsAlready_isOnlyRemoved)
{
    m_launcher.expectLaunch();
    m_observer.always(getStatus, statusAnswer(true));
    build();
    advance(10s);
    EXPECT_EQ(commands(), QStringList());
    EXPECT_FALSE(RecordingResumeMarker::consume());
}

TEST_F(AfterAnUpdate, recordingThatCannotStart_leavesNoMarker)
{
    m_screenGranted = false;
    launch();
    advance(3s);
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_FALSE(RecordingResumeMarker::consume());
}

class WithoutUpdate : public ModelFixture
{};

TEST_F(WithoutUpdate, noMarker_startsNothing)
{
    launch();
    advance(10s);
    EXPECT_EQ(commands(), QStringList());
    EXPECT_EQ(m_events, QStringList());
}

} // namespace
