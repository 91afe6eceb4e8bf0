#include "RecorderRig.h"

using namespace ostrel;

namespace {

const Error refused{QStringLiteral("test"), 3, QStringLiteral("the server refused")};

class RecorderPause : public RecorderRig
{
protected:
    RecorderPause()
    {
        // Every picture differs from the one before.
        displays.onCapture = [this](quint32) -> Result<std::optional<FrameView>> {
            if (m_fails)
                return std::unexpected(refused);
            if (m_pausesDuringCapture)
                recorder->setPaused(true);
            picture.fill(m_level += 40);
            return std::optional(picture.view());
        };
    }

    std::size_t pictures() const { return displays.captures.size(); }

    std::atomic<bool> m_fails = false;
    std::atomic<bool> m_pausesDuringCapture = false;
    std::uint8_t m_level = 0;
};

TEST_F(RecorderPause, paused_takesNoPictureUntilItGoesOn)
{
    ASSERT_TRUE(start());
    EXPECT_EQ(pictures(), 1u);
    recorder->setPaused(true);
    advance(10'000);
    EXPECT_EQ(pictures(), 1u);
    EXPECT_TRUE(recorder->isCapturing());
    recorder->setPaused(false);
    advance(500);
    EXPECT_EQ(pictures(), 2u);
}

TEST_F(RecorderPause, whatWasCapturedBefore_isStillPosted)
{
    ASSERT_TRUE(start());
    recorder->setPaused(true);
    transport.expect(QLatin1String(framesEndpoint), running());
    advance(20'000);
    EXPECT_EQ(framesOf(0).size(), 1);
}

TEST_F(RecorderPause, turnsThatAreSkipped_countNeitherAsFailuresNorAsSuccesses)
{
    m_fails = true;
    ASSERT_TRUE(start());
    advance(3 * 500);
    recorder->setPaused(true);
    advance(10'000);
    EXPECT_EQ(deaths, QStringList()) << "four failures and a pause are not five failures";
    recorder->setPaused(false);
    advance(500);
    EXPECT_EQ(deaths.size(), 1) << "the pause has not made good for the four before it";
}

TEST_F(RecorderPause, pauseWhilePictureIsTaken_itIsDroppedAndItsChangesAreNot)
{
    ASSERT_TRUE(start());
    m_pausesDuringCapture = true;
    advance(500);
    EXPECT_TRUE(summary().contains(QStringLiteral("accepted=1 buffered=1 ")));
    m_pausesDuringCapture = false;
    recorder->setPaused(false);
    // The source says that nothing has changed since the picture that was dropped.
    displays.onCapture = [this](quint32) -> Result<std::optional<FrameView>> {
        FrameView same = picture.view();
        same.changedRows.emplace();
        return std::optional(same);
    };
    advance(500);
    EXPECT_TRUE(summary().contains(QStringLiteral("accepted=2 buffered=2 "))) << summary().toStdString();
}

TEST_F(RecorderPause, recordingThatStartsPaused_takesNothingUntilItGoesOn)
{
    recorder->setPaused(true);
    ASSERT_TRUE(start());
    advance(5'000);
    EXPECT_EQ(pictures(), 0u);
    recorder->setPaused(false);
    advance(500);
    EXPECT_EQ(pictures(), 1u);
}

TEST_F(RecorderPause, streamsAreDelivering_samplesAreDroppedUntilItGoesOn)
{
    displays.mode = CaptureMode::Streams;
    ASSERT_TRUE(start());
    const auto deliver = [this](std::uint8_t level) {
        picture.fill(level);
        displays.streams.front()->deliver({.kind = StreamOutputKind::Screen, .valid = true, .image = picture.view()});
        settle();
    };
    recorder->setPaused(true);
    deliver(50);
    EXPECT_TRUE(summary().startsWith(QStringLiteral("callbacks=0 accepted=0 ")));
    recorder->setPaused(false);
    deliver(50);
    EXPECT_TRUE(summary().startsWith(QStringLiteral("callbacks=1 accepted=1 ")));
}

TEST_F(RecorderPause, manyPolls_areLoggedOnce)
{
    ASSERT_TRUE(start());
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    recorder->setPaused(true);
    advance(10'000);
    recorder->setPaused(true);
    EXPECT_EQ(log.take(QtInfoMsg), QStringList(QStringLiteral("screen capture paused")));
    recorder->setPaused(false);
    EXPECT_EQ(log.take(QtInfoMsg), QStringList(QStringLiteral("screen capture goes on after a pause")));
}

class RecorderDisplays : public RecorderRig
{
protected:
    RecorderDisplays()
    {
        displays.onHaveDisplaysChanged = [this] { return m_changed.load(); };
        recorder->onDisplaysChanged = [this] { ++m_told; };
    }

    std::atomic<bool> m_changed = false;
    int m_told = 0;
};

TEST_F(RecorderDisplays, unchanged_nobodyIsTold)
{
    ASSERT_TRUE(start());
    advance(10'000);
    EXPECT_EQ(m_told, 0);
}

TEST_F(RecorderDisplays, changed_ownerIsToldOnceAndCaptureGoesOn)
{
    displays.show({3, 5});
    ASSERT_TRUE(start());
    m_changed = true;
    const auto before = displays.captures.size();
    advance(2'000);
    EXPECT_EQ(m_told, 1);
    EXPECT_EQ(displays.captures.size(), before + 8);
    EXPECT_TRUE(recorder->isCapturing());
}

TEST_F(RecorderDisplays, changedAgainAfterANewStart_isToldAgain)
{
    ASSERT_TRUE(start());
    m_changed = true;
    advance(500);
    EXPECT_EQ(m_told, 1);
    m_changed = false;
    transport.expect(QLatin1String(framesEndpoint), running());
    ASSERT_TRUE(start());
    advance(500);
    EXPECT_EQ(m_told, 1);
    m_changed = true;
    advance(500);
    EXPECT_EQ(m_told, 2);
}

TEST_F(RecorderDisplays, changedWhilePaused_isToldAllTheSame)
{
    ASSERT_TRUE(start());
    recorder->setPaused(true);
    m_changed = true;
    advance(500);
    EXPECT_EQ(m_told, 1);
}

/// The same where displays are captured by streams, of which it is looked every 10 s how they are.
class RecorderStreamDisplays : public RecorderDisplays
{
protected:
    RecorderStreamDisplays() { displays.mode = CaptureMode::Streams; }
};

TEST_F(RecorderStreamDisplays, unchanged_nobodyIsTold)
{
    ASSERT_TRUE(start());
    advance(60'000);
    EXPECT_EQ(m_told, 0);
}

TEST_F(RecorderStreamDisplays, changed_ownerIsToldOnceAndCaptureGoesOn)
{
    ASSERT_TRUE(start());
    m_changed = true;
    advance(9'999);
    EXPECT_EQ(m_told, 0);
    advance(1);
    EXPECT_EQ(m_told, 1);
    advance(60'000);
    EXPECT_EQ(m_told, 1);
    EXPECT_TRUE(recorder->isCapturing());
}

TEST_F(RecorderStreamDisplays, changedWhilePaused_isToldWhenItGoesOn)
{
    ASSERT_TRUE(start());
    recorder->setPaused(true);
    m_changed = true;
    advance(60'000);
    EXPECT_EQ(m_told, 0) << "no session is opened behind a lock screen";
    recorder->setPaused(false);
    advance(10'000);
    EXPECT_EQ(m_told, 1);
}

class RecorderLosses : public RecorderRig
{};

TEST_F(RecorderLosses, destroyedWithFramesBufferedAndOnTheirWay_logsHowMany)
{
    ASSERT_TRUE(start());
    const auto held = transport.expectHeld(QLatin1String(framesEndpoint));
    advance(20'000);
    ASSERT_TRUE(held->hasArrived());
    picture.fill(200);
    advance(500);
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    recorder.reset();
    settle();
    EXPECT_EQ(log.take(QtCriticalMsg),
              QStringList(QStringLiteral("screen capture ended before the observer took frames=2")));
}

TEST_F(RecorderLosses, destroyedAfterItsLastFlush_logsNothing)
{
    ASSERT_TRUE(start());
    transport.expect(QLatin1String(framesEndpoint), running());
    stop();
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    recorder.reset();
    settle();
    EXPECT_EQ(log.take(QtCriticalMsg), QStringList());
}

} // namespace
