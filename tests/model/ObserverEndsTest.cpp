#include "ModelFixture.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

FakeHttpTransport::Answer refused()
{
    return FakeHttpTransport::failure(Fault::ConnectionRefused);
}

/// How it shows first that the observer of a recording is gone.
enum class Sign {
    StatusOfTheSuccessor, ///< a poll finds nobody, the next one a new observer that doesn't record
    BatchRefused,         ///< a batch finds nobody
    BatchCutOff,          ///< it ended in the middle of a batch
    BatchToTheSuccessor,  ///< a batch meets a new observer, which doesn't record
    Stop,                 ///< the user's stop, with nothing to send, finds nobody
    StopBySuccessor,      ///< the user's stop, with nothing to send, meets a new observer
};

std::string nameOf(const testing::TestParamInfo<Sign> &info)
{
    const QStringList names{
        QStringLiteral("statusOfTheSuccessor"), QStringLiteral("batchRefused"), QStringLiteral("batchCutOff"),
        QStringLiteral("batchToTheSuccessor"),  QStringLiteral("stop"),         QStringLiteral("stopBySuccessor")};
    return names[int(info.param)].toStdString();
}

class ObserverKilled : public RunningRecording, public testing::WithParamInterface<Sign>
{
protected:
    void kill()
    {
        child().running = false;
        m_observer.always(getStatus, refused());
        m_observer.always(postFrames, refused());
        m_observer.always(postStop, refused());
        m_launcher.expectLaunch();
    }
    /// The new child answers.
    void succeed()
    {
        m_observer.always(getStatus, successorAnswer());
        m_observer.always(postFrames, FakeHttpTransport::answer({}, 409));
        m_observer.always(postStop, successorAnswer());
    }
    /// Sends what is in the buffer, so that a stop has nothing to send: the picture stays as it is.
    void emptyTheBuffer()
    {
        m_pictureStays = true;
        m_observer.expect(postFrames, statusAnswer(true));
        advance(20s);
    }

    void killAndShow()
    {
        switch (GetParam()) {
        case Sign::StatusOfTheSuccessor:
            kill();
            advance(1500ms);
            EXPECT_TRUE(m_recorder->isCapturing()) << "it may have been a poll that failed, and no more";
            succeed();
            return advance(1500ms);
        case Sign::BatchRefused:
            advance(19900ms);
            kill();
            return advance(100ms);
        case Sign::BatchCutOff:
            advance(19900ms);
            kill();
            m_observer.expect(postFrames, FakeHttpTransport::failure(Fault::ConnectionClosed));
            return advance(100ms);
        case Sign::BatchToTheSuccessor:
            advance(18100ms);
            kill();
            advance(1400ms);
            succeed();
            return advance(500ms);
        case Sign::Stop:
        case Sign::StopBySuccessor:
            emptyTheBuffer();
            kill();
            if (GetParam() == Sign::StopBySuccessor) {
                advance(1s); // the poll that starts it
                succeed();
            }
            m_model->toggleRecording();
            return settle();
        }
    }
};

TEST_P(ObserverKilled, whicheverSignIsFirst_endsInTheSameStateWithTheSameWords)
{
    killAndShow();
    EXPECT_EQ(m_events, QStringList(observerEnded));
    EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded());
    EXPECT_FALSE(m_model->isRecording());
    EXPECT_FALSE(m_model->stoppingRecording());
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_FALSE(m_model->status()->running);
    EXPECT_EQ(m_model->recordButtonTitle(), QStringLiteral("Start recording"));

    m_observer.forgetRequests();
    advance(1500ms); // where no poll has found it dead yet, this one does
    succeed();
    advance(60s);
    EXPECT_EQ(m_events, QStringList(observerEnded));
    EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded());
    EXPECT_EQ(m_launcher.children().size(), 2);
    EXPECT_EQ(commands(), QStringList());
}

TEST_P(ObserverKilled, afterwards_onePressRecordsWithItsSuccessor)
{
    killAndShow();
    succeed();
    advance(3s);
    m_events.clear();
    m_observer.expect(postStart, statusAnswer(true));
    m_model->toggleRecording();
    settle();
    EXPECT_EQ(m_events, QStringList(started));
    EXPECT_TRUE(m_recorder->isCapturing());
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(RunningRecording, ObserverKilled,
                         testing::Values(Sign::StatusOfTheSuccessor, Sign::BatchRefused, Sign::BatchCutOff,
                                         Sign::BatchToTheSuccessor, Sign::Stop, Sign::StopBySuccessor),
                         nameOf);

class ObserverTrouble : public RunningRecording
{};

TEST_F(ObserverTrouble, stopsByItselfTwice_endsOneRecordingEach)
{
    m_observer.always(getStatus, statusAnswer(false));
    advance(3s);
    EXPECT_EQ(m_events, QStringList(observerStopped));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    m_events.clear();
    record();
    m_observer.always(getStatus, statusAnswer(false));
    advance(60s);
    EXPECT_EQ(m_events, QStringList(observerStopped));
    EXPECT_EQ(commands(), QStringList());
}

TEST_F(ObserverTrouble, isReplacedOnOurWord_isNoUnexpectedEnd)
{
    m_launcher.expectLaunch();
    m_observer.expect(postFrames, statusAnswer(true));
    m_observer.always(getStatus, successorAnswer());
    m_model->restartHelper();
    advance(1500ms);
    EXPECT_EQ(m_events, QStringList(observerStopped));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

TEST_F(ObserverTrouble, statusFailsForAWhileButTheObserverLives_recordingGoesOn)
{
    for (const Fault fault : {Fault::TimedOut, Fault::ConnectionClosed, Fault::BadServerResponse}) {
        m_observer.always(getStatus, FakeHttpTransport::failure(fault));
        advance(4500ms);
    }
    EXPECT_EQ(m_model->helperError(), startingText);
    m_observer.always(getStatus, statusAnswer(true));
    advance(1500ms);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    EXPECT_TRUE(m_model->isRecording());
    EXPECT_EQ(m_events, QStringList());
    EXPECT_EQ(m_launcher.children().size(), 1);
}

class CrashLoop : public ModelFixture
{
protected:
    /// A minute in which each child that was started has ended by the next poll.
    void runForAMinute()
    {
        for (int poll = 0; poll < 40; ++poll) {
            for (const auto &child : m_launcher.children())
                child->running = false;
            advance(1500ms);
            texts.insert(m_model->helperError().value_or(QString()));
        }
    }

    QSet<QString> texts; ///< on show after the polls
};

TEST_F(CrashLoop, childEndsAtOnceEachTime_isStartedAtMostEveryFiveSecondsAndTheTextStays)
{
    m_launcher.allowLaunches();
    m_observer.always(getStatus, refused());
    build();
    runForAMinute();
    EXPECT_EQ(texts, QSet<QString>({startingText}));
    EXPECT_EQ(m_launcher.children().size(), 1 + 10) << "polls come every 1.5 s, so the fourth one is past the 5 s";
    EXPECT_EQ(m_observer.count(getStatus), 41) << "nothing but the polling";
}

TEST_F(CrashLoop, launchFailsEachTime_itsTextStaysUntilOneSucceeds)
{
    const Error noNode = faultError(Fault::NoSuchProgram, QStringLiteral("node"));
    m_observer.always(getStatus, refused());
    for (int launch = 0; launch < 1 + 1 + 10; ++launch) // the start, the first poll, and every fourth one after it
        m_launcher.expectFailure(noNode);
    build();
    runForAMinute();
    EXPECT_EQ(texts, QSet<QString>({noNode.localizedDescription}));
    m_launcher.expectLaunch();
    advance(6s);
    EXPECT_EQ(m_model->helperError(), startingText);
}

TEST_F(CrashLoop, recordingIsAskedFor_failsAfterThirtyAttemptsWithTheTransportsWords)
{
    m_launcher.allowLaunches();
    m_observer.always(getStatus, refused());
    build();
    child().running = false;
    m_observer.forgetRequests();
    m_model->toggleRecording();
    advance(7499ms); // the fifth poll would come with the next millisecond
    EXPECT_EQ(m_observer.count(getStatus), 30 + 4);
    EXPECT_EQ(m_events, QStringList(startFailed));
    EXPECT_EQ(m_model->helperError(), words(Fault::ConnectionRefused));
    EXPECT_EQ(commands(), QStringList());
    EXPECT_TRUE(m_displays.screenshotters.empty()) << "capture was never started";
}

TEST_F(CrashLoop, clockIsSetBackByHours_restartsGoOnAfterFiveSeconds)
{
    m_launcher.allowLaunches();
    m_observer.always(getStatus, refused());
    build();
    child().running = false;
    advance(1500ms); // this one is started at once
    ASSERT_EQ(m_launcher.children().size(), 2);
    child().running = false;
    m_clock.setNowMs(m_clock.nowMs() - 3 * 3600 * 1000);
    advance(1500ms); // the first poll that sees the new time
    EXPECT_EQ(m_launcher.children().size(), 2) << "never two starts within five seconds";
    advance(4500ms);
    EXPECT_EQ(m_launcher.children().size(), 2);
    advance(1500ms);
    EXPECT_EQ(m_launcher.children().size(), 3);
}

} // namespace
