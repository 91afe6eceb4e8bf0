#include "RecorderRig.h"

#include "capture/JpegEncoder.h"

#include <algorithm>
#include <functional>
#include <random>

using namespace ostrel;

namespace {

const QString frames = QStringLiteral("POST /api/frames");
const QString observerStop = QStringLiteral("POST /api/stop");

class RecorderFlush : public RecorderRig
{
protected:
    /// One more frame that shows something new, half a second later.
    void nextFrame()
    {
        m_level = std::uint8_t(m_level + 20);
        picture.fill(m_level);
        advance(500);
    }

    static FakeHttpTransport::Answer refusal() { return FakeHttpTransport::failure(Fault::ConnectionRefused); }
    static QString refusalText() { return faultError(Fault::ConnectionRefused).localizedDescription; }

private:
    std::uint8_t m_level = 0;
};

TEST_F(RecorderFlush, firstFlush_comesOneWholeIntervalAfterStart)
{
    ASSERT_TRUE(start());
    advance(19'999);
    EXPECT_TRUE(transport.requests().isEmpty());
    transport.expect(frames, running(7));
    advance(1);
    ASSERT_EQ(transport.endpoints(), QStringList{frames});
    ASSERT_EQ(statuses.size(), 1);
    EXPECT_EQ(statuses[0].chunkIndex, 7);
}

TEST_F(RecorderFlush, emptyBuffer_isLoggedAndMakesNoRequest)
{
    ASSERT_TRUE(start());
    transport.expect(frames, running());
    advance(20'000);
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    advance(20'000);
    EXPECT_EQ(log.take(QtInfoMsg),
              QStringList{QStringLiteral("screen capture flush empty callbacks=80 accepted=1 buffered=0 "
                                         "missingContext=0 invalid=0 missingPixel=0 throttled=0 downsampleFailed=0 "
                                         "unchanged=79 jpegFailed=0")});
    EXPECT_EQ(transport.count(frames), 1);
}

TEST_F(RecorderFlush, batch_isLoggedAndHoldsAllFramesInOrder)
{
    settings.chunkSizeMs = 2'250;
    ASSERT_TRUE(start());
    nextFrame();
    nextFrame();
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    transport.expect(frames, running());
    advance(1'250);
    EXPECT_EQ(log.take(QtInfoMsg),
              QStringList{QStringLiteral("screen capture submitting frames=3 callbacks=5 accepted=3 buffered=3 "
                                         "missingContext=0 invalid=0 missingPixel=0 throttled=0 downsampleFailed=0 "
                                         "unchanged=2 jpegFailed=0")});
    const QJsonArray sent = framesOf(0);
    ASSERT_EQ(sent.size(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(sent[i][QStringLiteral("frameIndex")].toInt(), i);
}

TEST_F(RecorderFlush, chunkSizeOfZeroOrLess_flushesEveryMillisecond)
{
    settings.chunkSizeMs = -5;
    transport.expect(frames, running());
    ASSERT_TRUE(start());
    advance(1);
    EXPECT_EQ(transport.count(frames), 1);
}

TEST_F(RecorderFlush, framesAcceptedDuringASubmission_goIntoTheNextBatch)
{
    settings.chunkSizeMs = 1'000;
    const auto held = transport.expectHeld(frames);
    ASSERT_TRUE(start());
    advance(1'000);
    ASSERT_TRUE(held->hasArrived());
    nextFrame();
    EXPECT_EQ(transport.count(frames), 1) << "one batch at a time";
    held->release(running());
    transport.expect(frames, running());
    advance(1'000);
    EXPECT_EQ(framesOf(0).size(), 1);
    EXPECT_EQ(framesOf(1).size(), 1);
    EXPECT_EQ(framesOf(1)[0][QStringLiteral("frameIndex")].toInt(), 1);
}

TEST_F(RecorderFlush, stop_postsWhatIsBuffered)
{
    ASSERT_TRUE(start());
    nextFrame();
    transport.expect(frames, running());
    stop();
    EXPECT_EQ(framesOf(0).size(), 2);
    EXPECT_EQ(statuses.size(), 1);
    EXPECT_FALSE(recorder->isCapturing());
}

TEST_F(RecorderFlush, stopWithoutFlush_postsNothing)
{
    ASSERT_TRUE(start());
    stop(true);
    EXPECT_TRUE(transport.requests().isEmpty());
    EXPECT_FALSE(recorder->isCapturing());
    EXPECT_EQ(displays.liveScreenshotters, 0);
}

TEST_F(RecorderFlush, stopWhenNothingRuns_doesNothing)
{
    stop();
    stop(true);
    EXPECT_TRUE(transport.requests().isEmpty());
}

TEST_F(RecorderFlush, stopWhileABatchIsOnItsWay_awaitsItAndLosesNothing)
{
    settings.chunkSizeMs = 1'000;
    const auto held = transport.expectHeld(frames);
    ASSERT_TRUE(start());
    advance(1'000);
    nextFrame();
    transport.expect(frames, running(2));
    const auto stopped = beginStop(false);
    settle();
    EXPECT_FALSE(*stopped) << "the batch has not been answered";
    EXPECT_FALSE(held->wasCancelled());
    EXPECT_EQ(displays.liveScreenshotters, 0) << "capture itself has ended";
    held->release(running(1));
    settle();
    EXPECT_TRUE(*stopped);
    EXPECT_EQ(framesOf(0).size(), 1);
    EXPECT_EQ(framesOf(1).size(), 1);
    ASSERT_EQ(statuses.size(), 2);
    EXPECT_EQ(statuses[0].chunkIndex, 1);
    EXPECT_EQ(statuses[1].chunkIndex, 2);
}

TEST_F(RecorderFlush, stopWithoutFlushWhileABatchIsOnItsWay_awaitsItAndPostsNoMore)
{
    settings.chunkSizeMs = 1'000;
    const auto held = transport.expectHeld(frames);
    ASSERT_TRUE(start());
    advance(1'000);
    nextFrame();
    const auto stopped = beginStop(true);
    settle();
    EXPECT_FALSE(*stopped);
    held->release(running());
    settle();
    EXPECT_TRUE(*stopped);
    EXPECT_EQ(transport.count(frames), 1);
}

TEST_F(RecorderFlush, failedBatch_reportsStopsTheObserverAndStopsCaptureOnce)
{
    settings.chunkSizeMs = 1'000;
    ASSERT_TRUE(start());
    transport.expect(frames, refusal());
    transport.expect(observerStop, running());
    advance(1'000);
    EXPECT_EQ(transport.endpoints(), (QStringList{frames, observerStop}));
    EXPECT_EQ(errors, QStringList{refusalText()});
    EXPECT_TRUE(statuses.isEmpty());
    EXPECT_FALSE(recorder->isCapturing());
    EXPECT_EQ(displays.liveScreenshotters, 0);
    EXPECT_EQ(clock.pendingTimerCount(), 0);
    advance(60'000);
    EXPECT_EQ(transport.requests().size(), 2) << "no other flush, no other stop";
}

TEST_F(RecorderFlush, failedBatch_observersAnswerToTheStopIsIgnored)
{
    settings.chunkSizeMs = 1'000;
    ASSERT_TRUE(start());
    transport.expect(frames, FakeHttpTransport::answer("{}", 500));
    transport.expect(observerStop, refusal());
    advance(1'000);
    EXPECT_EQ(errors, QStringList{faultError(Fault::BadServerResponse).localizedDescription});
    EXPECT_FALSE(recorder->isCapturing());
}

TEST_F(RecorderFlush, failedBatch_itsFramesAreDroppedNotQueuedAgain)
{
    settings.chunkSizeMs = 1'000;
    ASSERT_TRUE(start());
    transport.expect(frames, refusal());
    transport.expect(observerStop, running());
    advance(1'000);
    ASSERT_TRUE(start());
    transport.expect(frames, running());
    stop();
    ASSERT_EQ(framesOf(1).size(), 1);
    EXPECT_EQ(framesOf(1)[0][QStringLiteral("frameIndex")].toInt(), 0);
}

TEST_F(RecorderFlush, failedBatch_observerIsAskedBeforeCaptureEnds)
{
    settings.chunkSizeMs = 1'000;
    ASSERT_TRUE(start());
    transport.expect(frames, refusal());
    const auto held = transport.expectHeld(observerStop);
    advance(1'000);
    ASSERT_TRUE(held->hasArrived());
    EXPECT_TRUE(recorder->isCapturing());
    held->release(running());
    settle();
    EXPECT_FALSE(recorder->isCapturing());
}

TEST_F(RecorderFlush, stopWhileAFailingBatchIsOnItsWay_reportsOnceAndPostsNoMore)
{
    settings.chunkSizeMs = 1'000;
    const auto held = transport.expectHeld(frames);
    ASSERT_TRUE(start());
    advance(1'000);
    nextFrame();
    const auto stopped = beginStop(false);
    settle();
    transport.expect(observerStop, running());
    held->release(refusal());
    settle();
    EXPECT_TRUE(*stopped);
    EXPECT_EQ(transport.endpoints(), (QStringList{frames, observerStop}));
    EXPECT_EQ(errors, QStringList{refusalText()});
}

TEST_F(RecorderFlush, startWhileAFailingBatchIsOnItsWay_theNewRecordingGoesOn)
{
    settings.chunkSizeMs = 1'000;
    const auto held = transport.expectHeld(frames);
    ASSERT_TRUE(start());
    advance(1'000);
    const auto restarted = beginStart();
    settle();
    EXPECT_FALSE(*restarted);
    transport.expect(observerStop, running());
    held->release(refusal());
    settle();
    ASSERT_TRUE(*restarted);
    EXPECT_TRUE(**restarted);
    EXPECT_TRUE(recorder->isCapturing()) << "the failure belonged to the recording before";
    transport.expect(frames, running());
    stop();
}

TEST_F(RecorderFlush, failedLastBatch_reportsAndStillStops)
{
    ASSERT_TRUE(start());
    transport.expect(frames, refusal());
    transport.expect(observerStop, refusal());
    stop();
    EXPECT_EQ(transport.endpoints(), (QStringList{frames, observerStop}));
    EXPECT_EQ(errors, QStringList{refusalText()});
    EXPECT_FALSE(recorder->isCapturing());
}

TEST_F(RecorderFlush, batchOf52Megabytes_isOneRequestWithEveryFrame)
{
    constexpr qsizetype goal = 52'000'000;
    FakePicture noise(1280, 720);
    std::mt19937 random(52);
    const auto scramble = [&noise, &random] {
        auto *words = reinterpret_cast<std::uint32_t *>(noise.bytes().data());
        std::generate_n(words, noise.bytes().size() / 4, std::ref(random));
    };
    scramble();
    const auto base64Bytes = qsizetype(JpegEncoder().makeJPEGData(noise.view())->size()) * 4 / 3;
    displays.show({3}, 1280, 720);
    displays.onCapture = [&noise, scramble](quint32) {
        scramble(); // even the averages of noise differ enough to be a new picture
        return std::optional(noise.view());
    };
    settings.frameFps = 10;
    settings.chunkSizeMs = 3'600'000;
    ASSERT_TRUE(start());
    const qsizetype count = goal / base64Bytes + 5;
    advance((count - 1) * 100);
    transport.expect(frames, running());
    stop();
    ASSERT_EQ(transport.count(frames), 1);
    EXPECT_GE(transport.requests().last().body->size(), goal);
    const QJsonArray sent = framesOf(0);
    ASSERT_EQ(sent.size(), count);
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(sent[i][QStringLiteral("frameIndex")].toInt(), i);
    EXPECT_EQ(statuses.size(), 1);
}

TEST_F(RecorderFlush, callbacks_neverComeFromWithinStartOrStop)
{
    ASSERT_TRUE(start());
    transport.expect(frames, running());
    flows.spawn([this](std::stop_token) -> Task<> {
        co_await recorder->stop(false);
        EXPECT_TRUE(statuses.isEmpty());
    });
    settle();
    EXPECT_EQ(statuses.size(), 1);
}

} // namespace
