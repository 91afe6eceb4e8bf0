#include "ModelFixture.h"

#include <latch>
#include <semaphore>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

TEST_F(ModelFixture, observerRestartedOnOurWordBeforeCaptureHasBegun_leavesTheRecordingItsCapture)
{
    launch();
    holdPermissions();
    m_model->toggleRecording();
    settle();
    m_launcher.expectLaunch();
    m_model->restartHelper();
    settle();
    m_observer.expect(postStart, statusAnswer(true));
    releasePermissions();
    m_observer.always(getStatus, statusAnswer(true));
    advance(10s);
    EXPECT_EQ(m_events, QStringList(started));
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_TRUE(m_recorder->isCapturing());
}

/// What a start waits for when something comes between.
enum class Awaited { Permissions, FirstAttempt, PauseOfAttempts, ThirtiethAttempt, StartRequest, Recorder };

std::string nameOf(const testing::TestParamInfo<Awaited> &info)
{
    const QStringList names{QStringLiteral("permissions"),     QStringLiteral("firstAttempt"),
                            QStringLiteral("pauseOfAttempts"), QStringLiteral("thirtiethAttempt"),
                            QStringLiteral("startRequest"),    QStringLiteral("recorder")};
    return names[int(info.param)].toStdString();
}

class StartAwaiting : public ModelFixture, public testing::WithParamInterface<Awaited>
{
protected:
    /// Presses the button and brings the start to where it waits.
    void startAndHold()
    {
        launch();
        switch (GetParam()) {
        case Awaited::Permissions:
            holdPermissions();
            return press();
        case Awaited::FirstAttempt:
            m_held = m_observer.expectHeld(getStatus);
            return press();
        case Awaited::PauseOfAttempts:
            refuseStatus();
            return press();
        case Awaited::ThirtiethAttempt:
            refuseStatus();
            press();
            advance(7200ms);
            m_held = m_observer.expectHeld(getStatus);
            return advance(50ms);
        case Awaited::StartRequest:
            m_held = m_observer.expectHeld(postStart);
            return press();
        case Awaited::Recorder:
            holdRecorder();
            m_observer.expect(postStart, statusAnswer(true));
            return press();
        }
    }

    /// What was awaited comes, and comes well.
    void goOn()
    {
        if (GetParam() != Awaited::Recorder)
            m_observer.always(getStatus, statusAnswer(false));
        switch (GetParam()) {
        case Awaited::Permissions:
            return releasePermissions();
        case Awaited::FirstAttempt:
        case Awaited::ThirtiethAttempt:
            m_held->release(statusAnswer(false)); // by then it may have been withdrawn
            return settle();
        case Awaited::PauseOfAttempts:
            return advance(250ms);
        case Awaited::StartRequest:
            m_held->release(statusAnswer(true));
            return settle();
        case Awaited::Recorder:
            releaseRecorder();
            return settle(); // a start, a stop and a second start are a long chain
        }
    }

    /// The process ends; what was awaited of it fails.
    void killObserver()
    {
        child().running = false;
        refuseStatus();
        if (GetParam() == Awaited::Permissions)
            releasePermissions();
        else if (GetParam() == Awaited::Recorder)
            releaseRecorder();
        else if (m_held)
            m_held->release(FakeHttpTransport::failure(Fault::ConnectionClosed));
        settle();
    }

    void press()
    {
        m_model->toggleRecording();
        settle();
    }
    void refuseStatus() { m_observer.always(getStatus, FakeHttpTransport::failure(Fault::ConnectionRefused)); }
    /// The stop that follows, and the last batch where capture has begun.
    void expectStop()
    {
        m_observer.always(postFrames, statusAnswer(true));
        m_observer.expect(postStop, statusAnswer(false));
    }
    bool observerWasTold() const { return GetParam() >= Awaited::StartRequest; }
    /// The commands without the batches.
    QStringList startsAndStops() const
    {
        QStringList all = commands();
        all.removeAll(postFrames);
        return all;
    }
    void expectRest()
    {
        EXPECT_FALSE(m_recorder->isCapturing());
        EXPECT_FALSE(m_model->isRecording());
        EXPECT_FALSE(m_model->pendingRecordingRestart());
        EXPECT_EQ(startsAndStops(), observerWasTold() ? QStringList({postStart, postStop}) : QStringList(postStop));
    }

    std::shared_ptr<FakeHttpTransport::HeldAnswer> m_held;
};

TEST_P(StartAwaiting, undisturbed_bringsBothSidesUp)
{
    startAndHold();
    EXPECT_EQ(m_events, QStringList());
    if (!observerWasTold())
        m_observer.expect(postStart, statusAnswer(true));
    goOn();
    EXPECT_EQ(m_events, QStringList(started));
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_EQ(m_observer.count(postStart), 1);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

TEST_P(StartAwaiting, stop_bringsBothSidesToRest)
{
    startAndHold();
    expectStop();
    m_model->stopRecording();
    settle();
    goOn();
    m_observer.always(getStatus, statusAnswer(false));
    advance(10s);
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_FALSE(m_model->stoppingRecording());
    expectRest();
}

TEST_P(StartAwaiting, stopAndManyPresses_startExactlyOnceMore)
{
    startAndHold();
    expectStop();
    if (!observerWasTold())
        m_observer.always(getStatus, statusAnswer(false));
    m_model->stopRecording();
    m_observer.expect(postStart, statusAnswer(true));
    for (int i = 0; i < 10; ++i)
        m_model->toggleRecording();
    settle();
    goOn();
    EXPECT_EQ(m_events, QStringList({endedByRequest, started}));
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_EQ(m_observer.count(postStart), observerWasTold() ? 2 : 1);
    EXPECT_EQ(m_observer.count(postStop), 1);
}

TEST_P(StartAwaiting, tenPresses_changeNothingUntilTheObserverRecords)
{
    startAndHold();
    const bool isRecording = m_model->isRecording();
    if (isRecording)
        expectStop(); // the first press ends it, the others ask for the next one
    if (isRecording || !observerWasTold())
        m_observer.expect(postStart, statusAnswer(true));
    for (int i = 0; i < 10; ++i)
        m_model->toggleRecording();
    settle();
    goOn();
    EXPECT_EQ(isRecording, GetParam() == Awaited::Recorder);
    EXPECT_EQ(m_events, isRecording ? QStringList({endedByRequest, started}) : QStringList(started));
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_EQ(m_observer.count(postStart), isRecording ? 2 : 1);
}

TEST_P(StartAwaiting, quit_stopsBothSidesAndTerminatesOnce)
{
    startAndHold();
    expectStop();
    m_model->quit();
    m_model->quit();
    m_model->toggleRecording();
    settle();
    goOn();
    m_model->quit();
    advance(10s);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    EXPECT_EQ(child().terminateCount, 1);
    EXPECT_EQ(m_launcher.children().size(), 1);
    expectRest();
}

TEST_P(StartAwaiting, stopThenQuit_asksTheObserverOnceMoreAndTerminatesOnce)
{
    startAndHold();
    m_observer.always(postFrames, statusAnswer(true));
    m_observer.always(postStop, statusAnswer(false));
    m_model->stopRecording();
    m_model->quit();
    settle();
    goOn();
    advance(10s);
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
    EXPECT_EQ(m_observer.count(postStop), 2);
    EXPECT_FALSE(m_recorder->isCapturing());
}

TEST_P(StartAwaiting, observerKilled_endsCleanlyAndTheNextPressRecords)
{
    startAndHold();
    m_launcher.allowLaunches();
    m_observer.always(postStop, FakeHttpTransport::failure(Fault::ConnectionRefused));
    killObserver();
    advance(8s); // polls start it again; the attempts of a start that waits run out
    switch (GetParam()) {
    case Awaited::StartRequest:
        EXPECT_EQ(m_events, QStringList(startFailed));
        EXPECT_EQ(m_model->helperError(), words(Fault::ConnectionClosed)) << "the new child does not undo the failure";
        break;
    case Awaited::Recorder:
        m_observer.always(getStatus, successorAnswer());
        advance(1500ms);
        EXPECT_EQ(m_events, QStringList({started, observerEnded}));
        EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded());
        break;
    case Awaited::ThirtiethAttempt:
        EXPECT_EQ(m_events, QStringList(startFailed));
        EXPECT_EQ(m_model->helperError(), startingText) << "a new child is on its way";
        break;
    default:
        EXPECT_EQ(m_events, QStringList(startFailed));
        EXPECT_EQ(m_model->helperError(), words(Fault::ConnectionRefused));
    }
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_FALSE(m_model->isRecording());

    m_events.clear();
    m_observer.always(getStatus, successorAnswer());
    m_observer.expect(postStart, statusAnswer(true));
    press();
    EXPECT_EQ(m_events, QStringList(started));
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(StartRecording, StartAwaiting,
                         testing::Values(Awaited::Permissions, Awaited::FirstAttempt, Awaited::PauseOfAttempts,
                                         Awaited::ThirtiethAttempt, Awaited::StartRequest, Awaited::Recorder),
                         nameOf);

/// A start for which the desktop asks the user.
class StartAskingTheUser : public ModelFixture
{
protected:
    StartAskingTheUser()
    {
        m_displays.onShareableContent = [this]() -> Result<ShareableContent> {
            m_asked.count_down();
            m_answered.acquire();
            return std::unexpected(faultError(Fault::Cancelled));
        };
        m_displays.onInterruptWaiting = [this] { m_answered.release(); };
        launch();
        m_observer.expect(postStart, statusAnswer(true));
        m_recorderHeld = true;
        m_model->toggleRecording();
        settle();
        m_asked.wait();
        m_recorderHeld = false;
        m_observer.expect(postStop, statusAnswer(false));
    }
    ~StartAskingTheUser() override
    {
        m_displays.onInterruptWaiting = [] {};
    }

    std::latch m_asked{1};
    std::counting_semaphore<> m_answered{0};
};

TEST_F(StartAskingTheUser, userStopsIt_theQuestionIsWithdrawnAndBothSidesStop)
{
    m_model->stopRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(endedByRequest));
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(commands(), QStringList({postStart, postStop}));
}

TEST_F(StartAskingTheUser, userQuits_theQuestionIsWithdrawnAndTheProgramEnds)
{
    m_model->quit();
    settle();
    EXPECT_EQ(m_events, QStringList({endedByRequest, terminated}));
}

} // namespace
