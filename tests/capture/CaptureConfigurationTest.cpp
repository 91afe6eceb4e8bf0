#include "capture/CaptureConfiguration.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

#include <limits>

using namespace ostrel;

namespace {

constexpr CapturableDisplay display{.displayId = 7, .width = 2560, .height = 1440, .bounds = {}};

TEST(MinFrameInterval, zeroNegativeOrSlowRate_isTenSeconds)
{
    EXPECT_EQ(minFrameIntervalMs(0), 10'000);
    EXPECT_EQ(minFrameIntervalMs(-1), 10'000);
    EXPECT_EQ(minFrameIntervalMs(0.05), 10'000);
}

TEST(MinFrameInterval, fastRate_isCappedAt100Ms)
{
    EXPECT_EQ(minFrameIntervalMs(30), 100);
    EXPECT_EQ(minFrameIntervalMs(10), 100);
    EXPECT_EQ(minFrameIntervalMs(std::numeric_limits<double>::infinity()), 100);
}

TEST(MinFrameInterval, ordinaryRate_isTruncatedToWholeMs)
{
    EXPECT_EQ(minFrameIntervalMs(2), 500);
    EXPECT_EQ(minFrameIntervalMs(0.5), 2'000);
    EXPECT_EQ(minFrameIntervalMs(3), 333);
    EXPECT_EQ(minFrameIntervalMs(0.7), 1'428);
}

TEST(MinFrameIntervalDeathTest, rateThatIsNoNumber_isFatal)
{
    EXPECT_DEATH(minFrameIntervalMs(std::numeric_limits<double>::quiet_NaN()), "fatal");
}

TEST(MakeConfiguration, anyRate_hasTheDisplaysOwnSizeAndTheCursor)
{
    const auto configuration = makeConfiguration(display, 0.5);
    EXPECT_EQ(configuration.width, 2560);
    EXPECT_EQ(configuration.height, 1440);
    EXPECT_EQ(configuration.queueDepth, 3);
    EXPECT_TRUE(configuration.showsCursor);
    EXPECT_FALSE(configuration.capturesAudio);
}

TEST(MakeConfiguration, zeroRate_isTenSecondsIn600ths)
{
    EXPECT_EQ(makeConfiguration(display, 0).minimumFrameInterval600, 6'000);
    EXPECT_EQ(makeConfiguration(display, -5).minimumFrameInterval600, 6'000);
}

TEST(MakeConfiguration, thirtyAndHalfAFrameASecond_areExactIn600ths)
{
    EXPECT_EQ(makeConfiguration(display, 30).minimumFrameInterval600, 20);
    EXPECT_EQ(makeConfiguration(display, 0.5).minimumFrameInterval600, 1'200);
}

TEST(MakeDisplayFilter, display_carriesItsIdentifierAndTheMode)
{
    const DisplayFilterMode mode{.excludedProcessIDs = {3, 9}};
    const auto filter = makeDisplayFilter(display, mode);
    EXPECT_EQ(filter.displayId, 7u);
    EXPECT_EQ(filter.mode, mode);
}

} // namespace
