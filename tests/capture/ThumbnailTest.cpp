#include "capture/Thumbnail.h"

#include "capture/ThumbnailCells.h"
#include "support/EveryTarget.h"
#include "support/GuardedBytes.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

using namespace ostrel;

namespace {

/// Noise that ends where memory ends, with the last row's last pixel.
class GuardedPicture
{
public:
    GuardedPicture(int width, int height, int paddingBytes, std::mt19937 &random)
        : m_width(width), m_height(height), m_stride(std::size_t(width) * 4 + std::size_t(paddingBytes)),
          m_bytes(m_stride * std::size_t(height - 1) + std::size_t(width) * 4)
    {
        const std::size_t size = std::size_t(m_bytes.view().size());
        for (std::size_t i = 0; i + 4 <= size; i += 4) {
            const std::uint32_t noise = random();
            std::memcpy(pixels() + i, &noise, 4);
        }
    }

    void fill(std::uint8_t level)
    {
        for (int y = 0; y < m_height; ++y)
            std::memset(pixels() + std::size_t(y) * m_stride, level, std::size_t(m_width) * 4);
    }

    FrameView view() const { return {pixels(), m_width, m_height, std::ptrdiff_t(m_stride)}; }

private:
    std::uint8_t *pixels() const { return reinterpret_cast<std::uint8_t *>(m_bytes.data()); }

    int m_width;
    int m_height;
    std::size_t m_stride;
    GuardedBytes m_bytes;
};

class ThumbnailOnEveryTarget : public EveryTarget
{
protected:
    void expectEqualsReference(int width, int height, int paddingBytes)
    {
        const GuardedPicture picture(width, height, paddingBytes, m_random);
        const auto fast = m_downsampler.makeDownsample(picture.view());
        ASSERT_TRUE(fast);
        ASSERT_EQ(fast->size(), downsampleBytes);
        ASSERT_TRUE(*fast == *makeReferenceDownsample(picture.view()))
            << width << "x" << height << " padded by " << paddingBytes;
    }

    Downsampler m_downsampler;
    std::mt19937 m_random{20'240'501};
};

INSTANTIATE_TEST_SUITE_P(Machine, ThumbnailOnEveryTarget, testing::ValuesIn(hwy::SupportedAndGeneratedTargets()),
                         &EveryTarget::name);

TEST_P(ThumbnailOnEveryTarget, noiseOfEveryWidthUpTo300_equalsTheReference)
{
    for (int width = 1; width <= 300; ++width)
        expectEqualsReference(width, 1 + width * 7 % 200, 0);
}

TEST_P(ThumbnailOnEveryTarget, noiseOfEveryHeightUpTo200_equalsTheReference)
{
    for (int height = 1; height <= 200; ++height)
        expectEqualsReference(1 + height * 13 % 300, height, 0);
}

TEST_P(ThumbnailOnEveryTarget, everySmallestSize_equalsTheReference)
{
    for (int width = 1; width <= 18; ++width) {
        for (int height = 1; height <= 12; ++height)
            expectEqualsReference(width, height, 0);
    }
}

TEST_P(ThumbnailOnEveryTarget, paddedRows_equalTheReference)
{
    for (const int padding : {1, 2, 3, 4, 60, 64, 100}) {
        expectEqualsReference(129, 73, padding);
        expectEqualsReference(640, 200, padding);
    }
}

TEST_P(ThumbnailOnEveryTarget, realAndOddLargeSizes_equalTheReference)
{
    expectEqualsReference(1366, 768, 0);
    expectEqualsReference(1920, 1080, 0);
    expectEqualsReference(1919, 1081, 12);
    expectEqualsReference(2879, 1801, 0);
}

TEST_P(ThumbnailOnEveryTarget, cellsTallerThan16BitSumsHold_doNotOverflow)
{
    // 72 * 257 rows fill 16-bit sums of white exactly; one more row per cell is where they would wrap.
    for (const int rowsPerCell : {257, 258, 300, 515, 1000}) {
        GuardedPicture white(3, 72 * rowsPerCell, 0, m_random);
        white.fill(255);
        EXPECT_EQ(m_downsampler.makeDownsample(white.view()), Downsample(downsampleBytes, 255)) << rowsPerCell;
        expectEqualsReference(3, 72 * rowsPerCell + 41, 0);
    }
}

TEST_P(ThumbnailOnEveryTarget, veryWidePicture_equalsTheReference)
{
    expectEqualsReference(65'535, 3, 0);
    expectEqualsReference(1'000'001, 1, 0);
}

TEST(Thumbnail, emptyPicture_cannotBeMade)
{
    const std::uint8_t pixel[4] = {};
    for (const FrameView &view : {FrameView{}, FrameView{pixel, 0, 1, 4}, FrameView{pixel, 1, 0, 4},
                                  FrameView{pixel, -1, 1, 4}, FrameView{nullptr, 1, 1, 4}}) {
        EXPECT_FALSE(Downsampler().makeDownsample(view));
        EXPECT_FALSE(makeReferenceDownsample(view));
    }
}

TEST(Thumbnail, picturesChannels_becomeOpaqueRgba)
{
    const std::uint8_t blueGreenRed[4] = {10, 20, 30, 77};
    const auto thumbnail = Downsampler().makeDownsample({blueGreenRed, 1, 1, 4});
    ASSERT_TRUE(thumbnail);
    for (std::size_t i = 0; i < thumbnail->size(); i += 4) {
        EXPECT_EQ((*thumbnail)[i], 30);
        EXPECT_EQ((*thumbnail)[i + 1], 20);
        EXPECT_EQ((*thumbnail)[i + 2], 10);
        EXPECT_EQ((*thumbnail)[i + 3], 255);
    }
}

TEST(Thumbnail, cell_isTheRoundedMeanOfExactlyItsPixels)
{
    // 256 x 144: each cell has 2 x 2 pixels. One pixel of cell (5, 9) is 254, so the mean is 63.5, rounded to 64.
    std::vector<std::uint8_t> pixels(256 * 144 * 4);
    pixels[(std::size_t(9 * 2 + 1) * 256 + 5 * 2 + 1) * 4] = 254;
    const auto thumbnail = makeReferenceDownsample({pixels.data(), 256, 144, 256 * 4});
    ASSERT_TRUE(thumbnail);
    for (std::size_t i = 0; i < thumbnail->size(); ++i) {
        const bool isAlpha = i % 4 == 3;
        const bool isTheBlue = i == (9 * 128 + 5) * 4 + 2;
        ASSERT_EQ((*thumbnail)[i], isAlpha ? 255 : isTheBlue ? 64 : 0) << i;
    }
}

TEST(Thumbnail, oneChangedPixelOfABigCell_isNotLost)
{
    // A 4K cell has 900 pixels; a glyph's stem of 20 black pixels on white darkens it by 5 or 6 levels.
    std::vector<std::uint8_t> pixels(std::size_t(3840) * 2160 * 4, 255);
    for (int y = 1001; y < 1021; ++y)
        std::memset(&pixels[(std::size_t(y) * 3840 + 2001) * 4], 0, 4);
    const auto thumbnail = Downsampler().makeDownsample({pixels.data(), 3840, 2160, 3840 * 4});
    EXPECT_LE(*std::min_element(thumbnail->begin(), thumbnail->end()), 252);
}

TEST(CellRange, cells_coverThePictureWithoutGapsAndAreNeverEmpty)
{
    for (const int extent : {1, 71, 72, 127, 128, 129, 1080, 1366, 3840}) {
        for (const int count : {72, 128}) {
            std::int64_t covered = 0;
            for (int i = 0; i < count; ++i) {
                const CellRange cell = cellRange(i, count, extent);
                ASSERT_GE(cell.size(), 1);
                ASSERT_LE(cell.begin, covered);
                covered = std::max(covered, cell.end);
            }
            EXPECT_EQ(covered, extent);
        }
    }
}

TEST(CellDivider, sumsAroundEveryQuotient_divideExactly)
{
    std::vector<std::int64_t> counts;
    for (std::int64_t pixels = 1; pixels <= 1024; ++pixels)
        counts.push_back(pixels);
    counts.insert(counts.end(), {3'599, 3'600, 65'535, 65'536, 999'983, CellDivider::maxPixels});
    for (const std::int64_t pixels : counts) {
        const CellDivider divider(pixels);
        for (std::int64_t quotient = 0; quotient <= 255; ++quotient) {
            for (const std::int64_t offset : {-1, 0, 1}) {
                const std::int64_t sum = quotient * pixels - pixels / 2 + offset;
                if (sum < 0 || sum > 255 * pixels)
                    continue;
                ASSERT_EQ(divider.average(std::uint64_t(sum)), (sum + pixels / 2) / pixels) << sum << "/" << pixels;
            }
        }
        ASSERT_EQ(divider.average(std::uint64_t(255 * pixels)), 255);
    }
}

} // namespace
