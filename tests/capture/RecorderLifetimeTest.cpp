#include "RecorderRig.h"

#include <atomic>
#include <latch>

using namespace ostrel;

namespace {

const QString frames = QStringLiteral("POST /api/frames");
const QString observerStop = QStringLiteral("POST /api/stop");

/// The recorder may be destroyed at any moment. The sanitizers are the judges of most of what can go wrong here.
using RecorderLifetime = RecorderRig;

TEST_F(RecorderLifetime, destroyedWhileRecording_endsItsTasksAndSources)
{
    ASSERT_TRUE(start());
    recorder.reset();
    EXPECT_EQ(displays.liveScreenshotters, 0);
    EXPECT_EQ(clock.pendingTimerCount(), 0);
    const auto captured = displays.captures.size();
    advance(60'000);
    EXPECT_EQ(displays.captures.size(), captured);
    EXPECT_TRUE(transport.requests().isEmpty()) << "there is no final flush";
}

TEST_F(RecorderLifetime, destroyedAtEveryStepOfAStart_endsTheStartAndLeavesNothing)
{
    for (int steps = 0; steps < 12; ++steps) {
        const auto outcome = beginStart();
        for (int i = 0; i < steps; ++i) {
            sampleQueue.sync([] {});
            contextQueue.sync([] {});
            QCoreApplication::sendPostedEvents();
        }
        recorder.reset();
        ASSERT_TRUE(*outcome) << "whoever awaits the start has been resumed, step " << steps;
        EXPECT_EQ(displays.liveScreenshotters, 0);
        EXPECT_EQ(clock.pendingTimerCount(), 0);
        makeRecorder();
    }
}

TEST_F(RecorderLifetime, destroyedWhileABatchIsOnItsWay_cancelsIt)
{
    settings.chunkSizeMs = 1'000;
    const auto held = transport.expectHeld(frames);
    ASSERT_TRUE(start());
    advance(1'000);
    recorder.reset();
    EXPECT_TRUE(held->wasCancelled());
    settle();
    EXPECT_TRUE(errors.isEmpty());
}

TEST_F(RecorderLifetime, destroyedWhileAStopAwaitsABatch_endsTheStop)
{
    settings.chunkSizeMs = 1'000;
    const auto held = transport.expectHeld(frames);
    ASSERT_TRUE(start());
    advance(1'000);
    const auto stopped = beginStop(false);
    settle();
    EXPECT_FALSE(*stopped);
    recorder.reset();
    EXPECT_TRUE(*stopped);
}

TEST_F(RecorderLifetime, destroyedWhileTheObserverIsAskedToStop_isSilent)
{
    settings.chunkSizeMs = 1'000;
    ASSERT_TRUE(start());
    transport.expect(frames, FakeHttpTransport::failure(Fault::TimedOut));
    const auto held = transport.expectHeld(observerStop);
    advance(1'000);
    ASSERT_TRUE(held->hasArrived());
    recorder.reset();
    EXPECT_TRUE(held->wasCancelled());
}

TEST_F(RecorderLifetime, destroyedWhileAPictureHangs_endsTheProcessAfterItsPatienceAndSaysWhatIsLost)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    std::latch release(1);
    std::atomic<bool> hangs = false;
    displays.onCapture = [this, &hangs, &release](quint32) {
        if (hangs)
            release.wait();
        return std::optional(picture.view());
    };
    QList<qint64> ends;
    endWithoutWaiting = [&ends, &release](qint64 lostFrames) {
        ends.append(lostFrames);
        release.count_down(); // a test can't end its process
    };
    patienceAtTheEnd = std::chrono::milliseconds(20);
    makeRecorder();
    ASSERT_TRUE(start());
    hangs = true;
    samplesHang = true;
    advance(500);
    recorder.reset();
    samplesHang = false;
    EXPECT_EQ(ends, QList<qint64>({1}));
    EXPECT_EQ(log.take(QtCriticalMsg).value(0),
              QStringLiteral("what captures the screen does not answer and is not waited for, undelivered frames=1"));
}

TEST_F(RecorderLifetime, destroyedWhileTheForegroundHangs_endsTheProcessAfterItsPatience)
{
    std::latch release(1);
    int ends = 0;
    endWithoutWaiting = [&ends, &release](qint64) {
        ++ends;
        release.count_down();
    };
    patienceAtTheEnd = std::chrono::milliseconds(20);
    makeRecorder();
    contextQueue.post([&release] { release.wait(); });
    recorder.reset();
    EXPECT_EQ(ends, 1);
}

TEST_F(RecorderLifetime, destroyedWhileBothQueuesAnswer_isWaitedForAndTellsWhatWasBuffered)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    endWithoutWaiting = [](qint64) { ADD_FAILURE() << "both queues answer"; };
    makeRecorder();
    ASSERT_TRUE(start());
    ASSERT_TRUE(summary().contains(QStringLiteral("buffered=1")));
    recorder.reset();
    EXPECT_EQ(log.take(QtCriticalMsg),
              QStringList(QStringLiteral("screen capture ended before the observer took frames=1")));
}

TEST_F(RecorderLifetime, callbackOnItsWay_neverComesAfterTheRecorder)
{
    settings.chunkSizeMs = 1'000;
    const auto held = transport.expectHeld(frames);
    ASSERT_TRUE(start());
    advance(1'000);
    held->release(running());
    recorder.reset();
    settle();
    EXPECT_TRUE(statuses.isEmpty());
}

TEST_F(RecorderLifetime, callbackThatDestroysTheRecorder_isTheLastThatHappens)
{
    displays.onCapture = [](quint32) { return std::optional<FrameView>(); };
    int calls = 0;
    recorder->onStreamsDied = [this, &calls](const QString &) {
        ++calls;
        recorder.reset();
    };
    ASSERT_TRUE(start());
    advance(10'000);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(recorder);
}

TEST_F(RecorderLifetime, callbackThatStartsAgain_records)
{
    displays.onCapture = [](quint32) { return std::optional<FrameView>(); };
    std::shared_ptr<std::optional<Result<>>> restarted;
    recorder->onStreamsDied = [this, &restarted](const QString &) {
        displays.onCapture = [this](quint32) { return std::optional(picture.view()); };
        restarted = beginStart();
    };
    ASSERT_TRUE(start());
    advance(2'000);
    ASSERT_TRUE(restarted && *restarted);
    EXPECT_TRUE(**restarted);
    EXPECT_TRUE(summary().startsWith(QStringLiteral("callbacks=1 accepted=1 ")));
}

TEST_F(RecorderLifetime, startResumesItsCallerWhichDestroysTheRecorder_isSafe)
{
    flows.spawn([this](std::stop_token) -> Task<> {
        static_cast<void>(co_await recorder->start(settings, api));
        recorder.reset();
    });
    settle();
    EXPECT_FALSE(recorder);
    EXPECT_EQ(displays.liveScreenshotters, 0);
}

TEST_F(RecorderLifetime, samplesThatEnd_areTheLastWordToTheTrees)
{
    transport.always(frames, running());
    transport.always(observerStop, running());
    ASSERT_TRUE(start());
    advance(5'000);
    EXPECT_EQ(tree.endingCount, 0);
    stop();
    EXPECT_EQ(tree.endingCount, 1);
    ASSERT_TRUE(start());
    recorder.reset();
    settleEvents({&contextQueue});
    EXPECT_EQ(tree.endingCount, 2);
}

TEST_F(RecorderLifetime, stopDuringAStart_waitsForItAndThenStops)
{
    const auto started = beginStart();
    const auto stopped = beginStop(true);
    EXPECT_FALSE(*started);
    EXPECT_FALSE(*stopped);
    settle();
    ASSERT_TRUE(*started);
    EXPECT_TRUE(**started);
    EXPECT_TRUE(*stopped);
    EXPECT_FALSE(recorder->isCapturing());
    EXPECT_EQ(displays.liveScreenshotters, 0);
    EXPECT_EQ(clock.pendingTimerCount(), 0);
}

TEST_F(RecorderLifetime, manyStartsAndStopsAtOnce_runInTheOrderOfAsking)
{
    transport.always(frames, running());
    std::vector<std::shared_ptr<std::optional<Result<>>>> starts;
    for (int i = 0; i < 5; ++i) {
        starts.push_back(beginStart());
        beginStop(i % 2 == 0);
    }
    starts.push_back(beginStart());
    for (int i = 0; i < 20; ++i)
        settle();
    for (const auto &outcome : starts) {
        ASSERT_TRUE(*outcome);
        EXPECT_TRUE(**outcome);
    }
    EXPECT_TRUE(recorder->isCapturing());
    EXPECT_EQ(displays.liveScreenshotters, 1);
}

TEST_F(RecorderLifetime, nobodyWaitsForAStart_itRunsToItsEnd)
{
    {
        TaskScope shortLived;
        shortLived.spawn(
            [this](std::stop_token) -> Task<> { static_cast<void>(co_await recorder->start(settings, api)); });
    }
    settle();
    EXPECT_TRUE(recorder->isCapturing());
}

TEST_F(RecorderLifetime, summaryBeforeAnyStart_isAllZero)
{
    EXPECT_EQ(summary(), QStringLiteral("callbacks=0 accepted=0 buffered=0 missingContext=0 invalid=0 missingPixel=0 "
                                        "throttled=0 downsampleFailed=0 unchanged=0 jpegFailed=0"));
}

} // namespace
