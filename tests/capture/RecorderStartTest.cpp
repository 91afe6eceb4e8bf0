#include "RecorderRig.h"
#include "base/Fault.h"

#include <atomic>
#include <semaphore>

using namespace ostrel;

namespace {

using RecorderStart = RecorderRig;

TEST_F(RecorderStart, noDisplay_failsWithCode1AndNothingRuns)
{
    displays.show({});
    const auto started = start();
    ASSERT_FALSE(started);
    EXPECT_EQ(started.error(),
              (Error{QStringLiteral("TamskOstrel.ScreenCapture"), 1, QStringLiteral("No capturable display found")}));
    EXPECT_FALSE(recorder->isCapturing());
    EXPECT_EQ(clock.pendingTimerCount(), 0);
    EXPECT_EQ(contextSamples, 0);
}

TEST_F(RecorderStart, aDisplayThatCannotBeOpened_failsWithItsErrorAndNothingRuns)
{
    displays.show({3, 5});
    const Error refused{QStringLiteral("test"), 9, QStringLiteral("a depth of 16")};
    displays.refusedDisplays = {{5, refused}};
    const auto started = start();
    ASSERT_FALSE(started);
    EXPECT_EQ(started.error(), refused);
    EXPECT_EQ(displays.liveScreenshotters, 0);
    EXPECT_FALSE(recorder->isCapturing());
    advance(60'000);
    EXPECT_TRUE(displays.captures.empty());
}

TEST_F(RecorderStart, twoDisplays_areLoggedConfiguredAndCapturedInOrder)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    displays.show({3, 2});
    ASSERT_TRUE(start());
    EXPECT_TRUE(recorder->isCapturing());
    EXPECT_EQ(log.take(QtInfoMsg).join(u'\n'),
              QStringLiteral("screen capture starting displays=2 fps=2.000000 chunkMs=20000 "
                             "filter=includingApplications\n"
                             "screen capture screenshot polling started sources=2"));
    ASSERT_EQ(displays.screenshotters.size(), 2u);
    EXPECT_EQ(displays.screenshotters[0].first.displayId, 3u);
    EXPECT_EQ(displays.screenshotters[0].second.minimumFrameInterval600, 300);
    EXPECT_EQ(displays.screenshotters[1].first.displayId, 2u);
    EXPECT_EQ(displays.captures, (std::vector<quint32>{3, 2}));
}

TEST_F(RecorderStart, ownProcessAmongApplications_isLeftOutOfThePicture)
{
    displays.onShareableContent = [] {
        ShareableContent content;
        content.displays = {{.displayId = 1, .width = 64, .height = 36, .bounds = {}}};
        content.applications = {{.processID = 41, .bundleIdentifier = {}}, {.processID = 42, .bundleIdentifier = {}}};
        return Result<ShareableContent>(content);
    };
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    ASSERT_TRUE(start());
    EXPECT_EQ(displays.screenshotters.at(0).first.mode.excludedProcessIDs, QList<qint32>{42});
    EXPECT_TRUE(log.take(QtInfoMsg).first().endsWith(QStringLiteral("filter=excludingApplications(count=1)")));
}

TEST_F(RecorderStart, firstFrame_carriesTheContextReadAtStart)
{
    ASSERT_TRUE(start());
    transport.expect(QLatin1String(framesEndpoint), running());
    stop();
    ASSERT_EQ(framesOf(0).size(), 1);
    EXPECT_TRUE(framesOf(0)[0][QStringLiteral("text")].toString().contains(QStringLiteral("Editor")));
}

TEST_F(RecorderStart, candidates_areTheSortedDisplaysWithTheirLabels)
{
    displays.onShareableContent = [] {
        ShareableContent content;
        content.mainDisplayId = 9;
        content.displays = {{.displayId = 5, .width = 64, .height = 36, .bounds = QRectF(64, 0, 64, 36)},
                            {.displayId = 9, .width = 64, .height = 36, .bounds = QRectF(0, 0, 64, 36)}};
        return Result<ShareableContent>(content);
    };
    foreground.onMouseLocation = [] { return QPointF(70, 10); };
    ASSERT_TRUE(start());
    transport.expect(QLatin1String(framesEndpoint), running());
    stop();
    const QJsonValue frame = framesOf(0)[0];
    EXPECT_EQ(frame[QStringLiteral("displayLabel")].toString(), QStringLiteral("Display 1 (main)"));
    EXPECT_EQ(frame[QStringLiteral("activeDisplayId")].toString(), QStringLiteral("5"));
    EXPECT_EQ(frame[QStringLiteral("activeDisplayLabel")].toString(), QStringLiteral("Display 2"));
    EXPECT_EQ(frame[QStringLiteral("activeDisplayReason")].toString(), QStringLiteral("mouse"));
}

TEST_F(RecorderStart, sampler_readsAtOnceAndThenEveryHalfSecond)
{
    ASSERT_TRUE(start());
    EXPECT_EQ(contextSamples, 2); // the initial values, and the sampler's first
    advance(499);
    EXPECT_EQ(contextSamples, 2);
    advance(1);
    EXPECT_EQ(contextSamples, 3);
    advance(5'000);
    EXPECT_EQ(contextSamples, 13);
}

TEST_F(RecorderStart, foregroundChanges_laterFramesCarryTheNewContext)
{
    ASSERT_TRUE(start());
    advance(499);
    showApplication(QStringLiteral("Browser"));
    picture.fill(90);
    advance(501); // sampled at 500, in the frame taken at 500 or at 1000
    picture.fill(180);
    advance(1'000);
    transport.expect(QLatin1String(framesEndpoint), running());
    stop();
    const QJsonArray frames = framesOf(0);
    EXPECT_TRUE(frames.first()[QStringLiteral("text")].toString().contains(QStringLiteral("Editor")));
    EXPECT_TRUE(frames.last()[QStringLiteral("text")].toString().contains(QStringLiteral("Browser")));
}

TEST_F(RecorderStart, contextThatHangs_isNeitherReadTwiceAtATimeNorHoldsCaptureUp)
{
    std::counting_semaphore<> latch(0);
    std::atomic<int> reading = 0;
    std::atomic<int> begun = 0;
    ASSERT_TRUE(start());
    foreground.onFrontmostApplication = [&]() -> std::optional<ForegroundApplication> {
        ++begun;
        EXPECT_EQ(++reading, 1);
        latch.acquire();
        --reading;
        return std::nullopt;
    };
    contextHangs = true;
    advance(10'000);
    EXPECT_LE(begun, 1);
    EXPECT_EQ(displays.captures.size(), 21u);
    latch.release();
    contextHangs = false;
    settle();
    EXPECT_EQ(begun, 1);
    latch.release(100);
    advance(500);
    EXPECT_EQ(begun, 2);
}

TEST_F(RecorderStart, displaysThatAnswerSlowly_doNotBlockTheMainThread)
{
    std::binary_semaphore latch(0);
    displays.onShareableContent = [&latch] {
        latch.acquire();
        return Result<ShareableContent>(ShareableContent{});
    };
    const auto outcome = beginStart();
    bool handled = false;
    QMetaObject::invokeMethod(QCoreApplication::instance(), [&handled] { handled = true; }, Qt::QueuedConnection);
    QCoreApplication::processEvents();
    EXPECT_TRUE(handled);
    EXPECT_FALSE(*outcome);
    latch.release();
    settle();
    EXPECT_TRUE(*outcome);
}

TEST_F(RecorderStart, stopWhileAStartWaitsForTheUser_endsTheWaiting)
{
    std::binary_semaphore answered(0);
    displays.onShareableContent = [&answered]() -> Result<ShareableContent> {
        answered.acquire();
        return std::unexpected(faultError(Fault::Cancelled));
    };
    displays.onInterruptWaiting = [&answered] { answered.release(); };
    const auto outcome = beginStart();
    stop();
    ASSERT_TRUE(*outcome);
    EXPECT_FALSE(**outcome);
    displays.onInterruptWaiting = [] {};
}

TEST_F(RecorderStart, startWhileRunning_flushesAndEndsTheOldRecordingFirst)
{
    ASSERT_TRUE(start());
    picture.fill(40);
    advance(500);
    transport.expect(QLatin1String(framesEndpoint), running());
    ASSERT_TRUE(start());
    EXPECT_EQ(framesOf(0).size(), 2);
    EXPECT_EQ(displays.liveScreenshotters, 1);
    EXPECT_EQ(summary(), QStringLiteral("callbacks=1 accepted=1 buffered=1 missingContext=0 invalid=0 missingPixel=0 "
                                        "throttled=0 downsampleFailed=0 unchanged=0 jpegFailed=0"));
    const auto polledBefore = displays.captures.size();
    advance(500);
    EXPECT_EQ(displays.captures.size(), polledBefore + 1) << "only one polling runs";
}

TEST_F(RecorderStart, secondRecording_numbersItsFramesFromZero)
{
    ASSERT_TRUE(start());
    transport.always(QLatin1String(framesEndpoint), running());
    stop();
    ASSERT_TRUE(start());
    stop();
    EXPECT_EQ(framesOf(1)[0][QStringLiteral("frameIndex")].toInt(), 0);
}

TEST_F(RecorderStart, framesLeftByAStopWithoutFlush_areNotInTheNextRecording)
{
    ASSERT_TRUE(start());
    stop(true);
    EXPECT_TRUE(transport.requests().isEmpty());
    ASSERT_TRUE(start());
    transport.expect(QLatin1String(framesEndpoint), running());
    stop();
    EXPECT_EQ(framesOf(0).size(), 1);
}

TEST_F(RecorderStart, failedStartAfterARecording_leavesNothingRunning)
{
    ASSERT_TRUE(start());
    transport.expect(QLatin1String(framesEndpoint), running());
    displays.show({});
    EXPECT_FALSE(start());
    EXPECT_FALSE(recorder->isCapturing());
    EXPECT_EQ(displays.liveScreenshotters, 0);
    EXPECT_EQ(clock.pendingTimerCount(), 0);
}

} // namespace
