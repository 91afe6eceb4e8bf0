#include "RecorderRig.h"
#include "support/GuardedBytes.h"

using namespace ostrel;

namespace {

const Error broken{QStringLiteral("test"), 4, QStringLiteral("the stream broke")};

class RecorderStreams : public RecorderRig
{
protected:
    RecorderStreams()
    {
        displays.mode = CaptureMode::Streams;
        displays.show({3, 5});
    }

    /// Has a stream deliver a picture of one brightness.
    void deliver(std::size_t stream, std::uint8_t level)
    {
        picture.fill(level);
        displays.streams.at(stream)->deliver(
            {.kind = StreamOutputKind::Screen, .valid = true, .image = picture.view()});
        settle();
    }
    void die(std::size_t stream)
    {
        displays.streams.at(stream)->die(broken);
        settle();
    }
};

TEST_F(RecorderStreams, eachDisplay_getsAStreamAndNoScreenshots)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    ASSERT_TRUE(start());
    ASSERT_EQ(displays.streams.size(), 2u);
    EXPECT_TRUE(displays.streams[0]->running && displays.streams[1]->running);
    EXPECT_EQ(displays.streams[1]->configuration.minimumFrameInterval600, 300);
    const QStringList logged = log.take(QtInfoMsg);
    EXPECT_EQ(
        logged.mid(1),
        (QStringList{QStringLiteral("screen capture stream started displayId=3 label=Display 1 (main) size=64x36"),
                     QStringLiteral("screen capture stream started displayId=5 label=Display 2 size=64x36")}));
    advance(10'000);
    EXPECT_TRUE(displays.captures.empty());
}

TEST_F(RecorderStreams, samples_passTheGateOnTheSampleQueue)
{
    ASSERT_TRUE(start());
    deliver(0, 10);
    deliver(1, 10);
    deliver(1, 90); // too early
    advance(500);
    deliver(1, 90);
    transport.expect(QLatin1String(framesEndpoint), running());
    stop();
    const QJsonArray frames = framesOf(0);
    ASSERT_EQ(frames.size(), 3);
    EXPECT_EQ(frames[0][QStringLiteral("displayId")].toString(), QStringLiteral("3"));
    EXPECT_EQ(frames[1][QStringLiteral("displayId")].toString(), QStringLiteral("5"));
    EXPECT_EQ(frames[2][QStringLiteral("frameIndex")].toInt(), 2);
}

TEST_F(RecorderStreams, framesOfAPause_areNotEvenRead)
{
    ASSERT_TRUE(start());
    recorder->setPaused(true);
    const GuardedBytes unreadable(0);
    FrameView view = picture.view();
    view.pixels = reinterpret_cast<const std::uint8_t *>(unreadable.data());
    displays.streams.at(0)->deliver({.kind = StreamOutputKind::Screen, .valid = true, .image = view});
    settle();
    EXPECT_TRUE(summary().startsWith(QStringLiteral("callbacks=0 ")));
}

TEST_F(RecorderStreams, clockSetBackByAnHour_theNextChangeIsTaken)
{
    ASSERT_TRUE(start());
    deliver(0, 10);
    clock.setNowMs(clock.nowMs() - 3'600'000);
    deliver(0, 90);
    EXPECT_TRUE(summary().startsWith(QStringLiteral("callbacks=2 accepted=2 ")));
}

TEST_F(RecorderStreams, oneDisplayThatFails_isLeftOutAndTheOthersRun)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    displays.streamsThatDoNotStart = {{3, broken}};
    ASSERT_TRUE(start());
    EXPECT_TRUE(recorder->isCapturing());
    EXPECT_EQ(log.take(QtCriticalMsg),
              QStringList{QStringLiteral("screen capture stream failed displayId=3 error=the stream broke")});
    deliver(0, 10); // the one that did not start
    deliver(1, 10);
    EXPECT_TRUE(summary().startsWith(QStringLiteral("callbacks=2 accepted=1 buffered=1 missingContext=1 ")));
}

TEST_F(RecorderStreams, allDisplaysFail_failsWithCode2AndNothingRuns)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    displays.refusedDisplays = {{3, broken}};
    displays.streamsThatDoNotStart = {{5, broken}};
    const auto started = start();
    ASSERT_FALSE(started);
    EXPECT_EQ(started.error(), (Error{QStringLiteral("TamskOstrel.ScreenCapture"), 2,
                                      QStringLiteral("Could not start screen capture")}));
    EXPECT_EQ(log.take(QtCriticalMsg).size(), 2);
    EXPECT_FALSE(recorder->isCapturing());
    EXPECT_EQ(clock.pendingTimerCount(), 0);
}

TEST_F(RecorderStreams, oneStreamStopsWhileAnotherRuns_isSilent)
{
    ASSERT_TRUE(start());
    die(0);
    EXPECT_TRUE(deaths.isEmpty());
    EXPECT_TRUE(errors.isEmpty());
    EXPECT_TRUE(displays.streams[0]->destroyed);
    deliver(0, 10);
    deliver(1, 10);
    EXPECT_TRUE(summary().startsWith(QStringLiteral("callbacks=2 accepted=1 buffered=1 missingContext=1 ")));
}

TEST_F(RecorderStreams, oneStreamStopsWhileAnotherRuns_isAChangeOfTheDisplays)
{
    int changes = 0;
    recorder->onDisplaysChanged = [&] { ++changes; };
    ASSERT_TRUE(start());
    die(0);
    EXPECT_EQ(changes, 1);
}

TEST_F(RecorderStreams, oneStreamStopsWhereTheUserWouldBeAskedAgain_theOtherGoesOn)
{
    int changes = 0;
    recorder->onDisplaysChanged = [&] { ++changes; };
    displays.asksAgain = true;
    ASSERT_TRUE(start());
    die(0);
    EXPECT_EQ(changes, 0);
    deliver(1, 10);
    EXPECT_TRUE(summary().startsWith(QStringLiteral("callbacks=1 accepted=1 ")));
    die(1);
    EXPECT_EQ(deaths, QStringList{broken.localizedDescription});
}

TEST_F(RecorderStreams, streamThatStopsAsTheRecorderGoes_isGoneBeforeItsDisplaySource)
{
    ASSERT_TRUE(start());
    displays.streams[0]->die(broken);
    recorder.reset();
    EXPECT_TRUE(displays.streams[0]->destroyed && displays.streams[1]->destroyed);
}

TEST_F(RecorderStreams, lastStreamStops_isReportedOnce)
{
    ASSERT_TRUE(start());
    die(0);
    die(1);
    EXPECT_EQ(deaths, QStringList{broken.localizedDescription});
    EXPECT_TRUE(errors.isEmpty());
    die(1);
    EXPECT_EQ(deaths.size(), 1);
}

TEST_F(RecorderStreams, lastStreamStopsAndOnStreamsDiedIsUnset_onErrorGetsTheMessage)
{
    recorder->onStreamsDied = nullptr;
    ASSERT_TRUE(start());
    die(0);
    die(1);
    EXPECT_EQ(errors, QStringList{broken.localizedDescription});
}

TEST_F(RecorderStreams, stop_stopsEveryStreamAndKeepsWhatIsBuffered)
{
    ASSERT_TRUE(start());
    deliver(0, 10);
    transport.expect(QLatin1String(framesEndpoint), running());
    stop();
    EXPECT_FALSE(displays.streams[0]->running || displays.streams[1]->running);
    EXPECT_TRUE(displays.streams[0]->destroyed && displays.streams[1]->destroyed);
    EXPECT_EQ(framesOf(0).size(), 1);
}

TEST_F(RecorderStreams, deliveryAndDeathAfterStop_areHarmless)
{
    ASSERT_TRUE(start());
    stop();
    deliver(0, 10);
    die(0);
    die(1);
    EXPECT_TRUE(deaths.isEmpty());
    EXPECT_TRUE(summary().contains(QStringLiteral("missingContext=1 ")));
}

TEST_F(RecorderStreams, deliveryAndDeathAfterTheRecorder_areHarmless)
{
    ASSERT_TRUE(start());
    recorder.reset();
    EXPECT_TRUE(displays.streams[0]->destroyed && displays.streams[1]->destroyed);
    deliver(0, 10);
    die(1);
    EXPECT_TRUE(deaths.isEmpty());
}

TEST_F(RecorderStreams, sampleOfAnOldStream_isNotTakenForTheNextRecordings)
{
    ASSERT_TRUE(start());
    stop();
    ASSERT_TRUE(start());
    deliver(0, 10);
    EXPECT_TRUE(summary().startsWith(QStringLiteral("callbacks=1 accepted=0 buffered=0 missingContext=1 ")));
}

} // namespace
