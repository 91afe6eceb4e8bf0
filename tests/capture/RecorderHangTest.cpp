#include "RecorderRig.h"
#include "support/RunTask.h"

#include <atomic>
#include <latch>

using namespace ostrel;

namespace {

const QString frames = QStringLiteral("POST /api/frames");
const QString noAnswerOfTheDesktop = QStringLiteral("Screen capture has stalled: no answer from the desktop");

/// A recording two pictures a second, with one in its buffer, whose screen the test can have hang.
class RecorderHang : public RecorderRig
{
protected:
    RecorderHang()
    {
        displays.onCapture = [this](quint32) {
            if (m_hangs)
                m_answers.wait();
            picture.fill(m_level += 40);
            return std::optional(picture.view());
        };
        makeRecorder();
    }
    ~RecorderHang() override
    {
        if (m_hangs)
            answer();
        if (m_isHeld)
            tell();
        recorder.reset(); // its capture reads what is below
    }

    /// From the next picture on.
    void hang()
    {
        m_hangs = true;
        samplesHang = true;
        advance(500);
    }
    void answer()
    {
        m_hangs = false;
        m_answers.count_down();
        samplesHang = false;
        settle();
    }
    /// Stops the recording of a screen that hangs, and has it left behind.
    void leaveBehind()
    {
        ASSERT_TRUE(start());
        hang();
        transport.expect(frames, running());
        beginStopping();
        advance(2'000);
    }

    /// The displays' list comes no more, until `tell`.
    void holdList()
    {
        m_isHeld = true;
        displays.onShareableContent = [this, show = displays.onShareableContent] {
            m_told.wait();
            return show();
        };
    }
    /// What is in front is told no more, until `tell`.
    void holdForeground()
    {
        m_isHeld = true;
        contextQueue.post([this] { m_told.wait(); });
        contextHangs = true;
    }
    void tell()
    {
        m_isHeld = false;
        m_told.count_down();
        samplesHang = false;
        contextHangs = false;
        settle();
    }

    /// How the stop ends, once it has.
    std::shared_ptr<std::optional<ScreenCaptureRecorder::StopOutcome>> beginStopping(bool skipFlush = false)
    {
        auto outcome = std::make_shared<std::optional<ScreenCaptureRecorder::StopOutcome>>();
        flows.spawn(
            [this, outcome, skipFlush](std::stop_token) -> Task<> { *outcome = co_await recorder->stop(skipFlush); });
        settle();
        return outcome;
    }

    using Outcome = ScreenCaptureRecorder::StopOutcome;
    std::atomic<bool> m_hangs = false;
    std::latch m_answers{1};
    bool m_isHeld = false;
    std::latch m_told{1};
    std::uint8_t m_level = 0;
};

TEST_F(RecorderHang, stop_givesUpAfterItsPatienceAndPostsWhatWasCaptured)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    ASSERT_TRUE(start());
    hang();
    transport.expect(frames, running());
    const auto outcome = beginStopping();
    advance(1'999);
    EXPECT_FALSE(*outcome);
    advance(1);
    ASSERT_TRUE(*outcome);
    EXPECT_EQ(**outcome, Outcome::LeftBehind);
    EXPECT_EQ(framesOf(0).size(), 1);
    EXPECT_FALSE(recorder->isCapturing());
    EXPECT_EQ(clock.pendingTimerCount(), 0);
    EXPECT_EQ(log.take(QtCriticalMsg),
              QStringList(QStringLiteral("what captures the screen does not answer: it is left behind")));
    EXPECT_TRUE(errors.isEmpty());
}

TEST_F(RecorderHang, screenThatAnswersInTime_isNotLeftBehindAndItsPictureIsInTheLastBatch)
{
    ASSERT_TRUE(start());
    hang();
    transport.expect(frames, running());
    const auto outcome = beginStopping();
    advance(1'999);
    answer();
    ASSERT_TRUE(*outcome);
    EXPECT_EQ(**outcome, Outcome::AtRest);
    EXPECT_EQ(framesOf(0).size(), 2);
    EXPECT_EQ(clock.pendingTimerCount(), 0);
}

TEST_F(RecorderHang, screenThatAnswersAfterTheStop_addsNothingAndItsSourcesAreReleased)
{
    leaveBehind();
    EXPECT_EQ(displays.liveScreenshotters, 1) << "nothing that is in use may go";
    answer();
    EXPECT_EQ(displays.liveScreenshotters, 0);
    EXPECT_TRUE(recorder->diagnosticSummary().startsWith(QStringLiteral("callbacks=2 accepted=1 buffered=0 ")))
        << recorder->diagnosticSummary().toStdString();
    EXPECT_EQ(transport.requests().size(), 1);
}

TEST_F(RecorderHang, stopWithoutAFlush_postsNothing)
{
    ASSERT_TRUE(start());
    hang();
    const auto outcome = beginStopping(true);
    advance(2'000);
    EXPECT_TRUE(*outcome);
    answer();
    EXPECT_TRUE(transport.requests().isEmpty());
}

TEST_F(RecorderHang, batchThatWaitedForWhatHangs_isPostedOnce)
{
    settings.chunkSizeMs = 1'000;
    ASSERT_TRUE(start());
    hang();
    advance(500); // the batch is due, and finds the queue hanging
    ASSERT_TRUE(transport.requests().isEmpty());
    transport.expect(frames, running());
    const auto outcome = beginStopping();
    advance(2'000);
    EXPECT_TRUE(*outcome);
    EXPECT_EQ(framesOf(0).size(), 1);
    answer();
    EXPECT_EQ(transport.requests().size(), 1);
}

TEST_F(RecorderHang, startAfterTheStop_waitsForTheScreenAndThenRecordsAnew)
{
    leaveBehind();
    recorder->setPaused(true);
    const auto started = beginStart();
    advance(60'000);
    EXPECT_FALSE(*started);
    answer();
    ASSERT_TRUE(*started);
    EXPECT_TRUE(**started);
    EXPECT_EQ(displays.liveScreenshotters, 1);
    advance(1'000);
    EXPECT_TRUE(recorder->diagnosticSummary().startsWith(QStringLiteral("callbacks=0 "))) << "the pause still holds";
    recorder->setPaused(false);
    advance(500);
    EXPECT_TRUE(recorder->diagnosticSummary().startsWith(QStringLiteral("callbacks=1 accepted=1 buffered=1 ")));
    transport.expect(frames, running());
    stop();
}

TEST_F(RecorderHang, startThatWaitsForTheScreen_isToldAfterHalfAMinuteAndOnce)
{
    leaveBehind();
    EXPECT_EQ(noAnswers, QStringList()) << "a stop that gave up has said so";
    const auto started = beginStart();
    advance(29'999);
    EXPECT_EQ(noAnswers, QStringList());
    advance(1);
    EXPECT_EQ(noAnswers, QStringList(noAnswerOfTheDesktop));
    advance(600'000);
    EXPECT_EQ(noAnswers.size(), 1);
    answer();
    ASSERT_TRUE(*started);
    EXPECT_TRUE(**started);
    advance(1'000);
    transport.expect(frames, running());
    stop();
    EXPECT_EQ(noAnswers.size(), 1);
}

TEST_F(RecorderHang, startOfStreamsThatWaitsForTheirList_isToldToWaitForTheUserPerhaps)
{
    displays.mode = CaptureMode::Streams;
    holdList();
    samplesHang = true;
    const auto started = beginStart();
    advance(30'000);
    EXPECT_EQ(noAnswers, QStringList(QStringLiteral(
                             "Screen capture has stalled: the desktop may be waiting for your answer to a question")));
    tell();
    EXPECT_TRUE(*started);
    stop();
}

TEST_F(RecorderHang, startThatWaitsForTheForeground_isToldAsWell)
{
    holdForeground();
    const auto started = beginStart();
    advance(30'000);
    EXPECT_EQ(noAnswers, QStringList(noAnswerOfTheDesktop));
    tell();
    EXPECT_TRUE(*started);
    transport.expect(frames, running());
    stop();
}

TEST_F(RecorderHang, startWhoseAnswersComeInTime_isNotToldHoweverLongItTakes)
{
    std::latch plan(1);
    displays.onShareableContent = [&plan, show = displays.onShareableContent] {
        plan.wait();
        return show();
    };
    std::latch opens(1);
    std::latch open(1);
    displays.onMakeScreenshotter = [&] {
        opens.count_down();
        open.wait();
    };
    const auto started = beginStart();
    samplesHang = true;
    advance(29'999);
    plan.count_down();
    ASSERT_TRUE(pumpUntil([&] { return opens.try_wait(); }));
    advance(29'999);
    open.count_down();
    samplesHang = false;
    settle();
    EXPECT_TRUE(*started);
    EXPECT_EQ(noAnswers, QStringList());
    transport.expect(frames, running());
    stop();
}

TEST_F(RecorderHang, stopDuringAStartThatHangs_endsBoth)
{
    holdList();
    samplesHang = true;
    const auto started = beginStart();
    const auto outcome = beginStopping();
    advance(1'999);
    EXPECT_FALSE(*started);
    advance(1);
    ASSERT_TRUE(*started);
    EXPECT_TRUE(isFault((*started)->error(), Fault::Cancelled));
    ASSERT_TRUE(*outcome);
    EXPECT_EQ(**outcome, Outcome::AtRest) << "nothing was recorded yet";
    tell();
    EXPECT_FALSE(recorder->isCapturing());
    EXPECT_EQ(displays.liveScreenshotters, 0);
}

TEST_F(RecorderHang, startThatFollowsAStop_hasAllTheTimeThatItsUserTakes)
{
    ASSERT_TRUE(start());
    holdList();
    transport.expect(frames, running());
    const auto outcome = beginStop(false);
    const auto started = beginStart();
    samplesHang = true;
    ASSERT_TRUE(pumpUntil([&] { return *outcome; }));
    advance(60'000);
    EXPECT_FALSE(*started);
    tell();
    ASSERT_TRUE(*started);
    EXPECT_TRUE(**started);
}

TEST_F(RecorderHang, stopWhileTheSourcesAreBeingOpened_leavesNoneOfThemOpen)
{
    std::latch release(1);
    std::latch opens(1);
    displays.onMakeScreenshotter = [&] {
        opens.count_down();
        release.wait();
    };
    samplesHang = true;
    const auto started = beginStart();
    ASSERT_TRUE(pumpUntil([&] { return opens.try_wait(); }));
    const auto outcome = beginStopping();
    advance(2'000);
    EXPECT_TRUE(*started);
    EXPECT_TRUE(*outcome);
    release.count_down();
    samplesHang = false;
    settle();
    EXPECT_EQ(displays.liveScreenshotters, 0);
}

TEST_F(RecorderHang, foregroundThatHangsDuringAStart_holdsNoStopUp)
{
    holdForeground();
    const auto started = beginStart();
    settle();
    const auto outcome = beginStopping();
    advance(2'000);
    EXPECT_TRUE(*started);
    EXPECT_TRUE(*outcome);
    tell();
}

TEST_F(RecorderHang, foregroundThatHangsWhileItRecords_isNotWaitedForByAStop)
{
    ASSERT_TRUE(start());
    holdForeground();
    transport.expect(frames, running());
    const auto outcome = beginStopping();
    ASSERT_TRUE(*outcome);
    EXPECT_EQ(**outcome, Outcome::AtRest);
    tell();
}

TEST_F(RecorderHang, privateWindowSeenWhileTheScreenHangs_takesBackWhatMayShowIt)
{
    displays.leavesOut = false;
    std::atomic<bool> isPrivate = false;
    excludesWindow = [&isPrivate](const WindowIdentity &) { return isPrivate.load(); };
    ASSERT_TRUE(start());
    ASSERT_TRUE(recorder->diagnosticSummary().contains(QStringLiteral("buffered=1")));
    isPrivate = true;
    hang(); // a moment before the context gets there
    const auto outcome = beginStopping();
    advance(2'000);
    EXPECT_TRUE(*outcome);
    EXPECT_TRUE(transport.requests().isEmpty());
}

TEST_F(RecorderHang, interruptedStartOfARecordingThatHangs_isGivenUpAndTheStopTellsOfIt)
{
    ASSERT_TRUE(start());
    hang();
    transport.expect(frames, running());
    const auto again = beginStart();
    advance(10'000);
    EXPECT_FALSE(*again) << "nobody wants it to end";
    recorder->interruptWaiting();
    advance(2'000);
    ASSERT_TRUE(*again);
    EXPECT_TRUE(isFault((*again)->error(), Fault::Cancelled));
    const auto outcome = beginStopping();
    ASSERT_TRUE(*outcome);
    EXPECT_EQ(**outcome, Outcome::LeftBehind);
    EXPECT_EQ(framesOf(0).size(), 1);
}

TEST_F(RecorderHang, destroyedAfterAStopThatGaveUp_waitsNoMore)
{
    QList<qint64> ends;
    endWithoutWaiting = [this, &ends](qint64 lostFrames) {
        ends.append(lostFrames);
        m_answers.count_down(); // a test can't end its process
    };
    makeRecorder(); // of a patience of a minute
    leaveBehind();
    recorder.reset();
    EXPECT_EQ(ends, QList<qint64>({0}));
    m_hangs = false;
    samplesHang = false;
}

TEST_F(RecorderHang, destroyedAfterTheScreenAnsweredAgain_isOrderly)
{
    endWithoutWaiting = [](qint64) { ADD_FAILURE() << "it answers"; };
    makeRecorder();
    leaveBehind();
    answer();
    recorder.reset();
}

} // namespace
