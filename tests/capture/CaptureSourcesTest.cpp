#include "capture/CaptureSources.h"
#include "capture/FirstPicture.h"

#include "support/FakeDisplaySource.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

class CaptureSourcesTest : public testing::Test
{
protected:
    CaptureSourcesTest()
    {
        m_displays.show({3});
        m_displays.onCapture = [this](quint32) { return std::optional(m_picture.view()); };
    }
    ~CaptureSourcesTest() override
    {
        m_queue.sync([this] { m_sources->tearDown(); });
    }

    Result<> open()
    {
        return m_queue.sync([this] {
            m_sources->gate().reset(500, {});
            return m_sources->openScreenshotSources(*planCapture(m_displays, 2, 1, std::nullopt));
        });
    }
    Result<ScreenshotOutcome> capture(std::size_t index)
    {
        return m_queue.sync([this, index] { return m_sources->captureScreenshot(index); });
    }

    SerialQueue m_queue{QStringLiteral("samples")};
    ManualClock m_clock{[] {}};
    FakeDisplaySource m_displays{m_queue};
    FakePicture m_picture{64, 36};
    std::shared_ptr<FirstPicture> m_firstPicture = std::make_shared<FirstPicture>();
    std::shared_ptr<CaptureSources> m_sources =
        std::make_shared<CaptureSources>(m_clock, m_displays, m_queue, m_firstPicture);
};

TEST_F(CaptureSourcesTest, picture_isJudgedAtTheTimeItWasTaken)
{
    ASSERT_TRUE(open());
    ASSERT_TRUE(capture(0));
    ASSERT_EQ(m_sources->gate().bufferedFrames.size(), 1);
    EXPECT_EQ(m_sources->gate().bufferedFrames.first().receivedAtMs, m_clock.nowMs());
}

TEST_F(CaptureSourcesTest, clockSetBackByAnHour_theNextChangeIsTaken)
{
    ASSERT_TRUE(open());
    ASSERT_TRUE(capture(0));
    m_clock.setNowMs(m_clock.nowMs() - 3'600'000);
    m_picture.fill(90);
    ASSERT_TRUE(capture(0));
    EXPECT_EQ(m_sources->gate().bufferedFrames.size(), 2);
}

TEST_F(CaptureSourcesTest, neitherPictureNorError_isCode3)
{
    m_displays.onCapture = [](quint32) { return std::optional<FrameView>(); };
    ASSERT_TRUE(open());
    const auto taken = capture(0);
    ASSERT_FALSE(taken);
    EXPECT_EQ(taken.error(), (Error{QStringLiteral("TamskOstrel.ScreenCapture"), 3,
                                    QStringLiteral("Screenshot capture returned no image")}));
    EXPECT_EQ(m_sources->gate().counters, FrameCounters());
}

TEST_F(CaptureSourcesTest, screenshottersError_isPassedOnAsItIs)
{
    const Error refused{QStringLiteral("test"), 12, QStringLiteral("no")};
    m_displays.onCapture = [refused](quint32) { return std::unexpected(refused); };
    ASSERT_TRUE(open());
    EXPECT_EQ(capture(0).error(), refused);
}

TEST_F(CaptureSourcesTest, captureAfterTearDown_takesNothingAndIsNoFailure)
{
    ASSERT_TRUE(open());
    m_queue.sync([this] { m_sources->tearDown(); });
    EXPECT_EQ(capture(0), ScreenshotOutcome::Skipped);
    EXPECT_TRUE(m_displays.captures.empty());
    EXPECT_EQ(m_displays.liveScreenshotters, 0);
}

} // namespace
