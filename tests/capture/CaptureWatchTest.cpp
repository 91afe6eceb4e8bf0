#include "capture/CaptureWatch.h"

#include "RecorderRig.h"

#include <latch>

using namespace ostrel;

namespace {

const QString noAnswerFromBoth =
    QStringLiteral("Screen capture has stalled: no answer from Display 1 (main), Display 2");
const QString noAnswerFromSecond = QStringLiteral("Screen capture has stalled: no answer from Display 2");

/// Two displays that don't change, and no batches but the last one.
class WatchedRecorder : public RecorderRig
{
protected:
    static constexpr qint64 aLongTime = 300'000;

    WatchedRecorder()
    {
        displays.show({3, 5});
        settings.chunkSizeMs = 1000 * aLongTime;
        recorder->onDisplaysChanged = [this] { ++m_displayChanges; };
    }

    int m_displayChanges = 0;
};

class WatchedScreenshots : public WatchedRecorder
{
protected:
    WatchedScreenshots()
    {
        displays.onCapture = [this](quint32 display) -> Result<std::optional<FrameView>> {
            if (m_fails)
                return std::unexpected(Error{{}, 1, QStringLiteral("no picture")});
            if (m_hangs && display == 5)
                m_release.wait();
            return picture.view();
        };
    }
    ~WatchedScreenshots() override { goOn(); }

    /// From the next picture of the second display on.
    void hang()
    {
        samplesHang = true;
        m_hangs = true;
    }
    void goOn()
    {
        if (!m_hangs.exchange(false))
            return;
        m_release.count_down();
        samplesHang = false;
        settle();
    }

    std::atomic<bool> m_fails = false;
    std::atomic<bool> m_hangs = false;
    std::latch m_release{1};
};

TEST_F(WatchedScreenshots, stillScreenThatIsPolled_isNoStall)
{
    ASSERT_TRUE(start());
    advance(9'999);
    EXPECT_EQ(goesOn, 0);
    advance(1);
    EXPECT_EQ(goesOn, 1);
    advance(aLongTime);
    EXPECT_EQ(stalls, QStringList());
    EXPECT_EQ(goesOn, 1) << "that is said once";
}

TEST_F(WatchedScreenshots, slowestRate_isNoStall)
{
    settings.frameFps = 0;
    ASSERT_TRUE(start());
    advance(aLongTime);
    EXPECT_EQ(stalls, QStringList());
}

TEST_F(WatchedScreenshots, pictureThatHangs_isAStallAfterHalfAMinuteAndAfterEachFurtherOne)
{
    ASSERT_TRUE(start());
    advance(10'000);
    hang();
    advance(30'000);
    ASSERT_EQ(stalls, QStringList()) << "the last sign came just after the look before";
    advance(10'000);
    EXPECT_EQ(stalls, QStringList(noAnswerFromBoth)) << "the first display waits for the second one";
    advance(30'000);
    EXPECT_EQ(stalls, QStringList({noAnswerFromBoth, noAnswerFromBoth}));
    EXPECT_EQ(goesOn, 1);
    goOn();
    advance(10'000);
    EXPECT_EQ(goesOn, 2);
    advance(aLongTime);
    EXPECT_EQ(stalls.size(), 2);
}

TEST_F(WatchedScreenshots, pictureThatHangsForLessThanHalfAMinute_isNoStall)
{
    ASSERT_TRUE(start());
    hang();
    advance(25'000);
    goOn();
    advance(60'000);
    EXPECT_EQ(stalls, QStringList());
}

TEST_F(WatchedScreenshots, displaysThatFailFiveTimes_areDeadAndNotStalled)
{
    m_fails = true;
    ASSERT_TRUE(start());
    advance(aLongTime);
    EXPECT_EQ(deaths.size(), 1);
    EXPECT_EQ(stalls, QStringList());
    EXPECT_EQ(goesOn, 0);
}

TEST_F(WatchedScreenshots, lockedSession_isNoStall)
{
    ASSERT_TRUE(start());
    recorder->setPaused(true);
    advance(aLongTime);
    recorder->setPaused(false);
    advance(60'000);
    EXPECT_EQ(stalls, QStringList());
}

TEST_F(WatchedScreenshots, clockThatIsSet_isNoStall)
{
    ASSERT_TRUE(start());
    for (const qint64 step : {aLongTime, -2 * aLongTime, 100'000 * aLongTime}) {
        clock.setNowMs(clock.nowMs() + step);
        advance(60'000);
    }
    EXPECT_EQ(stalls, QStringList());
}

TEST_F(WatchedScreenshots, stop_endsTheWatch)
{
    ASSERT_TRUE(start());
    transport.expect(QLatin1String(framesEndpoint), running());
    stop();
    advance(aLongTime);
    EXPECT_EQ(stalls, QStringList());
    EXPECT_EQ(clock.pendingTimerCount(), 0);
}

class WatchedStreams : public WatchedRecorder
{
protected:
    WatchedStreams() { displays.mode = CaptureMode::Streams; }

    FakeDisplaySource::Stream &stream(std::size_t index) { return *displays.streams.at(index); }
};

TEST_F(WatchedStreams, stillScreenWhoseStreamAnswers_isNoStall)
{
    ASSERT_TRUE(start());
    advance(10'000);
    EXPECT_EQ(goesOn, 1);
    advance(aLongTime);
    EXPECT_EQ(stalls, QStringList());
}

TEST_F(WatchedStreams, oneOfTwoThatDoesNotAnswer_isNamed)
{
    ASSERT_TRUE(start());
    for (const auto &each : displays.streams)
        each->deliver({.image = picture.view()});
    advance(10'000);
    stream(1).answers = false;
    advance(30'000);
    ASSERT_EQ(stalls, QStringList()) << "the last sign came just after the look before";
    advance(10'000);
    EXPECT_EQ(stalls, QStringList(noAnswerFromSecond));
    stream(1).answers = true;
    advance(20'000);
    EXPECT_EQ(goesOn, 2);
}

TEST_F(WatchedStreams, streamThatDeliversAndDoesNotAnswer_isNoStall)
{
    displays.newStreamsAnswer = false;
    ASSERT_TRUE(start());
    for (int sample = 0; sample < 20; ++sample) {
        for (const auto &each : displays.streams)
            each->deliver({.image = picture.view()});
        advance(9'000);
    }
    EXPECT_EQ(stalls, QStringList());
}

TEST_F(WatchedStreams, noneOfThemEverAnswers_isAStallAndNeverSaidToGoOn)
{
    displays.newStreamsAnswer = false;
    ASSERT_TRUE(start());
    advance(30'000);
    EXPECT_EQ(stalls, QStringList(noAnswerFromBoth));
    EXPECT_EQ(goesOn, 0);
}

TEST_F(WatchedStreams, onesThatAnswerAndSendNoPicture_areNamedAfterHalfAMinuteOnceUntilOneComes)
{
    ASSERT_TRUE(start());
    advance(29'999);
    EXPECT_EQ(missing, QStringList());
    advance(1);
    const QStringList both{
        QStringLiteral("Screen capture has no picture yet: none has come from Display 1 (main), Display 2")};
    EXPECT_EQ(missing, both);
    EXPECT_EQ(goesOn, 1);
    advance(aLongTime);
    EXPECT_EQ(missing, both);
    EXPECT_EQ(stalls, QStringList()) << "starting again helps no screen that is off";
    stream(0).deliver({.image = picture.view()});
    advance(20'000);
    EXPECT_EQ(goesOn, 1) << "one is still missing";
    transport.expect(QLatin1String(framesEndpoint), running());
    stream(1).deliver({.image = picture.view()});
    advance(10'000);
    EXPECT_EQ(goesOn, 2);
    advance(aLongTime);
    EXPECT_EQ(missing, both);
    stop();
}

TEST_F(WatchedStreams, oneOfTwoThatNeverSendsAPicture_isNamed)
{
    ASSERT_TRUE(start());
    stream(0).deliver({.image = picture.view()});
    advance(aLongTime);
    EXPECT_EQ(missing, QStringList(QStringLiteral("Screen capture has no picture yet: none has come from Display 2")));
}

TEST_F(WatchedStreams, deliveryWithoutAPicture_isNone)
{
    ASSERT_TRUE(start());
    stream(0).deliver({.image = picture.view()});
    stream(1).deliver({});
    advance(30'000);
    EXPECT_EQ(missing.size(), 1);
}

TEST_F(WatchedStreams, onesThatSendNoPictureOfALockedSession_areNotMissedUntilHalfAMinuteAfterIt)
{
    ASSERT_TRUE(start());
    recorder->setPaused(true);
    advance(aLongTime);
    recorder->setPaused(false);
    advance(20'000);
    EXPECT_EQ(missing, QStringList());
    advance(20'000);
    EXPECT_EQ(missing.size(), 1);
}

TEST_F(WatchedStreams, pictureThatIsHidden_isOne)
{
    displays.leavesOut = false;
    excludesWindow = [](const WindowIdentity &) { return true; };
    ASSERT_TRUE(start());
    stream(0).deliver({.image = picture.view()});
    stream(1).deliver({.image = picture.view()});
    settle();
    excludesWindow = [](const WindowIdentity &) { return false; };
    advance(aLongTime);
    EXPECT_EQ(missing, QStringList());
}

TEST_F(WatchedStreams, lockedSession_isNoStall)
{
    ASSERT_TRUE(start());
    recorder->setPaused(true);
    stream(0).answers = stream(1).answers = false;
    advance(aLongTime);
    EXPECT_EQ(stalls, QStringList());
}

TEST_F(WatchedStreams, privateWindowInFront_isNoStall)
{
    displays.leavesOut = false;
    excludesWindow = [](const WindowIdentity &) { return true; };
    ASSERT_TRUE(start());
    stream(0).answers = stream(1).answers = false;
    advance(aLongTime);
    EXPECT_EQ(stalls, QStringList());
}

TEST_F(WatchedStreams, queueOfSamplesThatHangs_isAStall)
{
    ASSERT_TRUE(start());
    std::latch release{1};
    samplesHang = true;
    sampleQueue.post([&release] { release.wait(); });
    advance(40'000);
    EXPECT_EQ(stalls, QStringList(noAnswerFromBoth));
    release.count_down();
    samplesHang = false;
    settle();
}

TEST_F(WatchedStreams, oneThatDoesNotStart_isNotWaitedFor)
{
    displays.streamsThatDoNotStart = {{5, Error{{}, 1, QStringLiteral("broken")}}};
    ASSERT_TRUE(start());
    advance(aLongTime);
    EXPECT_EQ(stalls, QStringList());
    EXPECT_EQ(goesOn, 1);
}

TEST_F(WatchedStreams, oneOfTwoThatStops_isAChangeOfTheDisplaysAndNoStall)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    ASSERT_TRUE(start());
    stream(1).die(Error{{}, 1, QStringLiteral("unplugged")});
    settle();
    EXPECT_EQ(m_displayChanges, 1);
    EXPECT_EQ(log.take(QtWarningMsg),
              QStringList(QStringLiteral("screen capture stream stopped displayId=5 error=unplugged")));
    advance(aLongTime);
    EXPECT_EQ(m_displayChanges, 1);
    EXPECT_EQ(stalls, QStringList());
    EXPECT_EQ(goesOn, 0) << "not all of them do";
    EXPECT_EQ(deaths, QStringList());
}

TEST_F(WatchedStreams, lastOneThatStops_isDeathAndNoChange)
{
    displays.show({3});
    ASSERT_TRUE(start());
    stream(0).die(Error{{}, 1, QStringLiteral("unplugged")});
    settle();
    EXPECT_EQ(m_displayChanges, 0);
    EXPECT_EQ(deaths.size(), 1);
}

} // namespace
