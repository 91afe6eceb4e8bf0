#include "RecorderRig.h"

using namespace ostrel;

namespace {

const Error grabFailed{QStringLiteral("test"), 3, QStringLiteral("the server refused")};

class RecorderPolling : public RecorderRig
{
protected:
    /// From now on the display's pictures fail.
    void failDisplay(quint32 displayId)
    {
        displays.onCapture = [this, displayId](quint32 id) -> Result<std::optional<FrameView>> {
            if (id == displayId)
                return std::unexpected(grabFailed);
            return std::optional(picture.view());
        };
    }
    void mendDisplays()
    {
        displays.onCapture = [this](quint32) { return std::optional(picture.view()); };
    }
};

TEST_F(RecorderPolling, firstPicture_isTakenAtOnceAndTheNextAfterEachInterval)
{
    ASSERT_TRUE(start());
    EXPECT_EQ(displays.captures.size(), 1u);
    advance(499);
    EXPECT_EQ(displays.captures.size(), 1u);
    advance(1);
    EXPECT_EQ(displays.captures.size(), 2u);
    advance(5'000);
    EXPECT_EQ(displays.captures.size(), 12u);
}

TEST_F(RecorderPolling, rateOfZero_pollsEveryTenSeconds)
{
    settings.frameFps = 0;
    ASSERT_TRUE(start());
    EXPECT_EQ(displays.screenshotters[0].second.minimumFrameInterval600, 6'000);
    advance(9'999);
    EXPECT_EQ(displays.captures.size(), 1u);
    advance(1);
    EXPECT_EQ(displays.captures.size(), 2u);
}

TEST_F(RecorderPolling, rateOfThirty_stillWaits100Ms)
{
    settings.frameFps = 30;
    ASSERT_TRUE(start());
    EXPECT_EQ(displays.screenshotters[0].second.minimumFrameInterval600, 20);
    advance(99);
    EXPECT_EQ(displays.captures.size(), 1u);
    advance(1);
    EXPECT_EQ(displays.captures.size(), 2u);
}

TEST_F(RecorderPolling, staticScreen_sendsOneFrameADisplay)
{
    displays.show({3, 5});
    ASSERT_TRUE(start());
    advance(10'000);
    EXPECT_EQ(summary(), QStringLiteral("callbacks=42 accepted=2 buffered=2 missingContext=0 invalid=0 missingPixel=0 "
                                        "throttled=0 downsampleFailed=0 unchanged=40 jpegFailed=0"));
}

TEST_F(RecorderPolling, fiveFailuresInARow_endPollingOfAllDisplaysWithTheMessage)
{
    LogRecorder log("com.tamsk.ostrel.ScreenCaptureRecorder");
    displays.show({3, 5});
    failDisplay(5);
    ASSERT_TRUE(start());
    advance(3 * 500);
    EXPECT_TRUE(deaths.isEmpty());
    advance(500);
    EXPECT_EQ(deaths,
              QStringList{QStringLiteral("Screen capture failed repeatedly for Display 2: the server refused")});
    EXPECT_TRUE(errors.isEmpty());
    QStringList expected(5, QStringLiteral("screen capture screenshot failed displayId=5 error=the server refused"));
    expected.append(QStringLiteral("screen capture source failed repeatedly displayId=5 threshold=5"));
    EXPECT_EQ(log.take(QtCriticalMsg), expected);
    const auto captured = displays.captures.size();
    EXPECT_EQ(captured, 10u);
    advance(5'000);
    EXPECT_EQ(displays.captures.size(), captured) << "polling has ended";
    EXPECT_TRUE(recorder->isCapturing()) << "what to do about it is the owner's business";
}

TEST_F(RecorderPolling, fiveFailuresWithoutAHandlerForDeath_goToOnError)
{
    recorder->onStreamsDied = nullptr;
    failDisplay(3);
    ASSERT_TRUE(start());
    advance(2'000);
    EXPECT_EQ(errors,
              QStringList{QStringLiteral("Screen capture failed repeatedly for Display 1 (main): the server refused")});
}

TEST_F(RecorderPolling, fourFailuresThenASuccessThenFourFailures_neverReachTheThreshold)
{
    failDisplay(3);
    ASSERT_TRUE(start());
    advance(3 * 500);
    mendDisplays();
    advance(500);
    failDisplay(3);
    advance(4 * 500);
    mendDisplays();
    advance(500);
    EXPECT_TRUE(deaths.isEmpty());
    EXPECT_EQ(displays.captures.size(), 10u);
}

TEST_F(RecorderPolling, failuresOfTwoDisplays_areCountedApart)
{
    displays.show({3, 5});
    int call = 0;
    displays.onCapture = [this, &call](quint32) -> Result<std::optional<FrameView>> {
        // Rounds 0 to 3 fail for the first display, rounds 4 to 7 for the second.
        const int round = call / 2;
        const bool isFirst = call++ % 2 == 0;
        if ((round < 4) == isFirst && round < 8)
            return std::unexpected(grabFailed);
        return std::optional(picture.view());
    };
    ASSERT_TRUE(start());
    advance(9 * 500);
    EXPECT_TRUE(deaths.isEmpty());
}

TEST_F(RecorderPolling, neitherPictureNorError_failsWithCode3sText)
{
    displays.onCapture = [](quint32) { return std::optional<FrameView>(); };
    ASSERT_TRUE(start());
    advance(2'000);
    EXPECT_EQ(deaths, QStringList{QStringLiteral("Screen capture failed repeatedly for Display 1 (main): "
                                                 "Screenshot capture returned no image")});
}

TEST_F(RecorderPolling, stop_endsPolling)
{
    ASSERT_TRUE(start());
    transport.expect(QLatin1String(framesEndpoint), running());
    stop();
    EXPECT_EQ(displays.liveScreenshotters, 0);
    const auto captured = displays.captures.size();
    advance(10'000);
    EXPECT_EQ(displays.captures.size(), captured);
    EXPECT_EQ(clock.pendingTimerCount(), 0);
}

} // namespace
