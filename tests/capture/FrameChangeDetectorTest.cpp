#include "capture/FrameChangeDetector.h"

#include "capture/Thumbnail.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

using namespace ostrel;
using FrameChangeDetector::hasMeaningfulChange;

namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(FrameChangeDetector, noPrevious_hasChanged)
{
    EXPECT_TRUE(hasMeaningfulChange(Bytes(downsampleBytes), std::nullopt));
    EXPECT_TRUE(hasMeaningfulChange(Bytes(), std::nullopt));
}

TEST(FrameChangeDetector, otherByteCount_hasChanged)
{
    EXPECT_TRUE(hasMeaningfulChange(Bytes(8), Bytes(12)));
    EXPECT_TRUE(hasMeaningfulChange(Bytes(), Bytes(1)));
}

TEST(FrameChangeDetector, fewerThanThreeBytes_hasNotChanged)
{
    EXPECT_FALSE(hasMeaningfulChange(Bytes(), Bytes()));
    EXPECT_FALSE(hasMeaningfulChange(Bytes{0}, Bytes{255}));
    EXPECT_FALSE(hasMeaningfulChange(Bytes{0, 0}, Bytes{255, 255}));
    EXPECT_TRUE(hasMeaningfulChange(Bytes{0, 0, 0}, Bytes{0, 0, 255}));
}

TEST(FrameChangeDetector, incompleteLastPixel_countsOnlyWithAllItsColours)
{
    EXPECT_FALSE(hasMeaningfulChange(Bytes{0, 0, 0, 0, 0}, Bytes{0, 0, 0, 0, 9}));
    EXPECT_FALSE(hasMeaningfulChange(Bytes{0, 0, 0, 0, 0, 0}, Bytes{0, 0, 0, 0, 0, 9}));
    EXPECT_TRUE(hasMeaningfulChange(Bytes{0, 0, 0, 0, 0, 0, 0}, Bytes{0, 0, 0, 0, 0, 0, 9}));
}

TEST(FrameChangeDetector, everyChannelDiffersByTwo_hasNotChanged)
{
    EXPECT_FALSE(hasMeaningfulChange(Bytes(downsampleBytes, 100), Bytes(downsampleBytes, 102)));
    EXPECT_FALSE(hasMeaningfulChange(Bytes(downsampleBytes, 2), Bytes(downsampleBytes, 0)));
}

TEST(FrameChangeDetector, anyOneColourOfAnyOnePixelDiffersByThree_hasChanged)
{
    const Bytes previous(downsampleBytes, 100);
    Bytes current = previous;
    constexpr std::array<std::uint8_t, 5> levels{97, 103, 0, 255, 96}; // five, so that each meets each colour
    for (std::size_t i = 0; i < downsampleBytes; ++i) {
        const bool isAlpha = i % 4 == 3;
        current[i] = levels[i % levels.size()];
        ASSERT_EQ(hasMeaningfulChange(current, previous), !isAlpha) << "byte " << i << ", level " << int(current[i]);
        current[i] = previous[i];
    }
}

TEST(FrameChangeDetector, onlyAlphaDiffers_hasNotChanged)
{
    Bytes current(downsampleBytes, 50);
    for (std::size_t i = 3; i < current.size(); i += 4)
        current[i] = 255;
    EXPECT_FALSE(hasMeaningfulChange(current, Bytes(downsampleBytes, 50)));
}

} // namespace
