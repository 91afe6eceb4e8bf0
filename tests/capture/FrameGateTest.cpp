#include "capture/FrameGate.h"

#include "support/FakeDisplaySource.h"
#include "support/GuardedBytes.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

#include <limits>

using namespace ostrel;

namespace {

constexpr StreamId streamId = 1;

class FrameGateTest : public testing::Test
{
protected:
    FrameGateTest()
    {
        m_gate.reset(500, {});
        m_context = makeContext(QStringLiteral("3"), QStringLiteral("Display 1 (main)"));
        m_gate.contexts.insert(streamId, m_context);
    }

    static std::shared_ptr<DisplayCaptureContext> makeContext(const QString &id, const QString &label)
    {
        auto context = std::make_shared<DisplayCaptureContext>();
        context->displayId = id;
        context->displayLabel = label;
        context->width = 64;
        context->height = 36;
        return context;
    }

    StreamSample sample() const { return {.kind = StreamOutputKind::Screen, .valid = true, .image = m_picture.view()}; }
    void deliver() { m_gate.streamDidOutputSample(streamId, sample()); }
    void deliver(std::uint8_t level)
    {
        m_picture.fill(level);
        deliver();
    }

    ManualClock m_clock{[] {}};
    FrameGate m_gate{m_clock};
    FakePicture m_picture{64, 36};
    std::shared_ptr<DisplayCaptureContext> m_context;
};

TEST_F(FrameGateTest, sampleOfAnotherOutputKind_isInvalidAndNoCallback)
{
    StreamSample audio = sample();
    audio.kind = StreamOutputKind::Audio;
    m_gate.streamDidOutputSample(streamId, audio);
    EXPECT_EQ(m_gate.counters, FrameCounters{.invalidSampleCount = 1});
}

TEST_F(FrameGateTest, sampleMarkedInvalid_isInvalidAndNoCallback)
{
    StreamSample invalid = sample();
    invalid.valid = false;
    m_gate.streamDidOutputSample(streamId, invalid);
    EXPECT_EQ(m_gate.counters, FrameCounters{.invalidSampleCount = 1});
}

TEST_F(FrameGateTest, sampleOfAnUnknownStream_missesItsContext)
{
    StreamSample empty = sample();
    empty.image.reset();
    m_gate.streamDidOutputSample(99, empty); // the missing context is noticed before the missing picture
    EXPECT_EQ(m_gate.counters, (FrameCounters{.callbackCount = 1, .missingContextCount = 1}));
}

TEST_F(FrameGateTest, sampleWithoutPicture_missesItsPixels)
{
    StreamSample empty = sample();
    empty.image.reset();
    m_gate.streamDidOutputSample(streamId, empty);
    EXPECT_EQ(m_gate.counters, (FrameCounters{.callbackCount = 1, .missingPixelBufferCount = 1}));
}

TEST_F(FrameGateTest, framesCloserThanFourFifthsOfTheInterval_areThrottled)
{
    deliver(0);
    m_clock.setNowMs(m_clock.nowMs() + 399);
    deliver(50);
    EXPECT_EQ(m_gate.counters, (FrameCounters{.callbackCount = 2, .throttledFrameCount = 1, .acceptedFrameCount = 1}));
    m_clock.setNowMs(m_clock.nowMs() + 1); // 400 of 500 ms
    deliver(50);
    EXPECT_EQ(m_gate.counters.acceptedFrameCount, 2);
}

TEST_F(FrameGateTest, throttledFrame_leavesTheWindowAndTheReferenceAlone)
{
    deliver(0);
    const qint64 acceptedMs = m_clock.nowMs();
    m_clock.setNowMs(acceptedMs + 100);
    deliver(50);
    EXPECT_EQ(m_context->lastAcceptedFrameMs, acceptedMs);
    EXPECT_EQ(m_context->lastSentDownsample->front(), 0);
}

TEST_F(FrameGateTest, frameThatIsNotAccepted_isNotEvenRead)
{
    deliver(0);
    const GuardedBytes unreadable(0);
    StreamSample next = sample();
    next.image->pixels = reinterpret_cast<const std::uint8_t *>(unreadable.data());
    next.image->changedRows.emplace(); // nothing
    m_gate.streamDidOutputSample(99, next);
    m_gate.streamDidOutputSample(streamId, next);
    m_clock.setNowMs(m_clock.nowMs() + 500);
    m_gate.streamDidOutputSample(streamId, next);
    EXPECT_EQ(m_gate.counters, (FrameCounters{.callbackCount = 4,
                                              .missingContextCount = 1,
                                              .throttledFrameCount = 1,
                                              .unchangedFrameCount = 1,
                                              .acceptedFrameCount = 1}));
}

TEST_F(FrameGateTest, clockSetBack_framesAreThrottledUntilItHasCaughtUp)
{
    deliver(0);
    m_clock.setNowMs(m_clock.nowMs() - 3'600'000);
    deliver(50);
    EXPECT_EQ(m_gate.counters.throttledFrameCount, 1);
}

TEST_F(FrameGateTest, pictureWithoutPixels_failsToDownsample)
{
    StreamSample hollow = sample();
    hollow.image = FrameView{};
    m_gate.streamDidOutputSample(streamId, hollow);
    EXPECT_EQ(m_gate.counters, (FrameCounters{.callbackCount = 1, .downsampleFailureCount = 1}));
    EXPECT_EQ(m_context->lastAcceptedFrameMs, 0);
}

TEST_F(FrameGateTest, unchangedFrame_restartsTheThrottleWindowButKeepsTheReference)
{
    deliver(100);
    m_clock.setNowMs(m_clock.nowMs() + 500);
    deliver(102);
    EXPECT_EQ(m_gate.counters, (FrameCounters{.callbackCount = 2, .unchangedFrameCount = 1, .acceptedFrameCount = 1}));
    EXPECT_EQ(m_context->lastAcceptedFrameMs, m_clock.nowMs());
    EXPECT_EQ(m_context->lastSentDownsample->front(), 100);
    m_clock.setNowMs(m_clock.nowMs() + 399);
    deliver(200);
    EXPECT_EQ(m_gate.counters.throttledFrameCount, 1);
}

TEST_F(FrameGateTest, slowDriftOfOneLevelAFrame_isSentWhenItHasAddedUpToThree)
{
    std::vector<int> sentAt;
    for (int level = 0; level <= 9; ++level) {
        const qint64 before = m_gate.counters.acceptedFrameCount;
        deliver(std::uint8_t(level));
        if (m_gate.counters.acceptedFrameCount > before)
            sentAt.push_back(level);
        m_clock.setNowMs(m_clock.nowMs() + 500);
    }
    EXPECT_EQ(sentAt, (std::vector<int>{0, 3, 6, 9}));
}

TEST_F(FrameGateTest, onlyTheUnusedByteOfThePixelsDiffers_isUnchanged)
{
    deliver(100);
    m_clock.setNowMs(m_clock.nowMs() + 500);
    for (std::size_t i = 3; i < m_picture.bytes().size(); i += 4)
        m_picture.bytes()[i] = 0;
    deliver();
    EXPECT_EQ(m_gate.counters.unchangedFrameCount, 1);
}

TEST_F(FrameGateTest, pictureTooWideForAJpegFile_failsToEncodeAndTriesAgain)
{
    const FakePicture tooWide(65'501, 1);
    StreamSample wide = sample();
    wide.image = tooWide.view();
    m_gate.streamDidOutputSample(streamId, wide);
    EXPECT_EQ(m_gate.counters, (FrameCounters{.callbackCount = 1, .jpegFailureCount = 1}));
    EXPECT_FALSE(m_context->lastSentDownsample);
    EXPECT_EQ(m_context->lastAcceptedFrameMs, 0);
    EXPECT_EQ(m_gate.frameIndex, 0);
}

TEST_F(FrameGateTest, firstFrameOfADisplay_isSentWithEveryFieldOfItsContext)
{
    m_gate.setRecordingContext({.appContextText = QStringLiteral("App: Editor"),
                                .activeDisplay = ActiveDisplaySelection{
                                    QStringLiteral("5"), QStringLiteral("Display 2"), QStringLiteral("mouse")}});
    deliver(7);
    ASSERT_EQ(m_gate.bufferedFrames.size(), 1);
    CapturedFramePayload payload = m_gate.bufferedFrames.first();
    const QByteArray jpeg = payload.videoBase64.bytes();
    EXPECT_TRUE(jpeg.startsWith("\xff\xd8") && jpeg.endsWith("\xff\xd9"));
    payload.videoBase64 = {};
    CapturedFramePayload expected;
    expected.receivedAtMs = m_clock.nowMs();
    expected.videoMimeType = QStringLiteral("image/jpeg");
    expected.text = QStringLiteral("App: Editor");
    expected.displayId = QStringLiteral("3");
    expected.displayLabel = QStringLiteral("Display 1 (main)");
    expected.displayWidth = 64;
    expected.displayHeight = 36;
    expected.activeDisplayId = QStringLiteral("5");
    expected.activeDisplayLabel = QStringLiteral("Display 2");
    expected.activeDisplayReason = QStringLiteral("mouse");
    EXPECT_EQ(payload, expected);
}

TEST_F(FrameGateTest, nothingKnownOfTheForeground_frameCarriesNoContext)
{
    deliver(7);
    ASSERT_EQ(m_gate.bufferedFrames.size(), 1);
    const CapturedFramePayload &payload = m_gate.bufferedFrames.first();
    EXPECT_FALSE(payload.text);
    EXPECT_FALSE(payload.activeDisplayId || payload.activeDisplayLabel || payload.activeDisplayReason);
}

TEST_F(FrameGateTest, firstFrameWithinTheIntervalOfTimeZero_isThrottled)
{
    m_gate.processCapturedImage(m_picture.view(), *m_context, 399);
    EXPECT_EQ(m_gate.counters.throttledFrameCount, 1);
    m_gate.processCapturedImage(m_picture.view(), *m_context, 400);
    EXPECT_EQ(m_gate.counters.acceptedFrameCount, 1);
}

TEST_F(FrameGateTest, stillImage_takesTheCallersTimeAndContext)
{
    const auto other = makeContext(QStringLiteral("8"), QStringLiteral("Display 4"));
    m_gate.processCapturedImage(m_picture.view(), *other, 1'234'567);
    ASSERT_EQ(m_gate.bufferedFrames.size(), 1);
    EXPECT_EQ(m_gate.bufferedFrames.first().receivedAtMs, 1'234'567);
    EXPECT_EQ(m_gate.bufferedFrames.first().displayId, QStringLiteral("8"));
    EXPECT_EQ(other->lastAcceptedFrameMs, 1'234'567);
    EXPECT_EQ(m_gate.counters, (FrameCounters{.callbackCount = 1, .acceptedFrameCount = 1}));
}

TEST_F(FrameGateTest, twoDisplays_shareOneIndexSequence)
{
    const auto other = makeContext(QStringLiteral("8"), QStringLiteral("Display 2"));
    m_gate.contexts.insert(2, other);
    for (int round = 0; round < 3; ++round) {
        deliver(std::uint8_t(round * 10));
        m_gate.streamDidOutputSample(2, sample());
        m_clock.setNowMs(m_clock.nowMs() + 500);
    }
    QList<qint64> indexes;
    QStringList displays;
    for (const CapturedFramePayload &frame : m_gate.bufferedFrames) {
        indexes.append(frame.frameIndex);
        displays.append(frame.displayId);
    }
    EXPECT_EQ(indexes, (QList<qint64>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(displays.join(u','), QStringLiteral("3,8,3,8,3,8"));
}

TEST_F(FrameGateTest, take_emptiesTheBufferAndNeitherCountersNorIndexes)
{
    deliver(0);
    const auto first = m_gate.takeBufferedFrames();
    EXPECT_EQ(first.frames.size(), 1);
    EXPECT_TRUE(first.summary.contains(QStringLiteral("accepted=1 buffered=1 ")));
    m_clock.setNowMs(m_clock.nowMs() + 500);
    deliver(50);
    const auto second = m_gate.takeBufferedFrames();
    ASSERT_EQ(second.frames.size(), 1);
    EXPECT_EQ(second.frames.first().frameIndex, 1);
    EXPECT_TRUE(second.summary.contains(QStringLiteral("accepted=2 buffered=1 ")));
    EXPECT_TRUE(m_gate.takeBufferedFrames().frames.isEmpty());
}

TEST_F(FrameGateTest, reset_beginsWithNoCountersNoFramesAndIndexZero)
{
    deliver(0);
    m_gate.reset(100, {.appContextText = QStringLiteral("App: Shell"), .activeDisplay = {}});
    EXPECT_EQ(m_gate.counters, FrameCounters());
    EXPECT_TRUE(m_gate.bufferedFrames.isEmpty());
    EXPECT_TRUE(m_gate.contexts.isEmpty());
    EXPECT_EQ(m_gate.frameIndex, 0);
    EXPECT_EQ(m_gate.minFrameIntervalMs, 100);
    EXPECT_EQ(m_gate.latestForegroundAppText, QStringLiteral("App: Shell"));
}

TEST_F(FrameGateTest, summaryOf120Frames_isTheGivenLine)
{
    m_gate.counters = {
        .callbackCount = 120, .throttledFrameCount = 98, .unchangedFrameCount = 15, .acceptedFrameCount = 7};
    EXPECT_EQ(m_gate.counters.diagnosticSummary(7),
              QStringLiteral("callbacks=120 accepted=7 buffered=7 missingContext=0 invalid=0 missingPixel=0 "
                             "throttled=98 downsampleFailed=0 unchanged=15 jpegFailed=0"));
}

TEST_F(FrameGateTest, summary_namesEachCounterByItsLabel)
{
    const FrameCounters counters{.callbackCount = 1,
                                 .missingContextCount = 2,
                                 .invalidSampleCount = 3,
                                 .missingPixelBufferCount = 4,
                                 .throttledFrameCount = 5,
                                 .downsampleFailureCount = 6,
                                 .unchangedFrameCount = 7,
                                 .jpegFailureCount = 8,
                                 .acceptedFrameCount = 9};
    EXPECT_EQ(counters.diagnosticSummary(10),
              QStringLiteral("callbacks=1 accepted=9 buffered=10 missingContext=2 invalid=3 missingPixel=4 "
                             "throttled=5 downsampleFailed=6 unchanged=7 jpegFailed=8"));
}

using FrameGateDeathTest = FrameGateTest;
constexpr qint64 greatest = std::numeric_limits<qint64>::max();

TEST_F(FrameGateDeathTest, counterThatWouldOverflow_isFatal)
{
    m_gate.counters.callbackCount = greatest;
    EXPECT_DEATH(deliver(), "overflow");
}

TEST_F(FrameGateDeathTest, frameIndexThatWouldOverflow_isFatal)
{
    m_gate.frameIndex = greatest;
    EXPECT_DEATH(deliver(), "overflow");
}

TEST_F(FrameGateDeathTest, timeDifferenceThatWouldOverflow_isFatal)
{
    m_context->lastAcceptedFrameMs = std::numeric_limits<qint64>::min();
    EXPECT_DEATH(deliver(), "overflow");
}

} // namespace
