#include "platform/x11/capture/X11Cursor.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

using namespace ostrel;

namespace {

constexpr int width = 6;
constexpr int height = 4;

class BlendCursor : public testing::Test
{
protected:
    /// Draws a cursor of one colour and returns the picture's pixel at (x, y) as B, G, R, unused.
    std::array<int, 4> blend(std::uint32_t argb, const QRect &place, int x, int y)
    {
        std::vector<std::uint8_t> pixels(std::size_t(m_stride) * height, 100);
        const std::vector<std::uint32_t> cursor(std::size_t(place.width()) * std::size_t(place.height()), argb);
        blendCursor(cursor.data(), place, pixels.data(), m_stride, QRect(0, 0, width, height));
        const std::uint8_t *pixel = &pixels[std::size_t(y) * m_stride + std::size_t(x) * 4];
        return {pixel[0], pixel[1], pixel[2], pixel[3]};
    }

    static constexpr std::ptrdiff_t m_stride = width * 4 + 8;
};

TEST_F(BlendCursor, opaquePixel_replaces)
{
    EXPECT_EQ(blend(0xff0a141e, QRect(1, 1, 2, 2), 1, 1), (std::array{30, 20, 10, 100}));
}

TEST_F(BlendCursor, transparentPixel_leavesThePicture)
{
    EXPECT_EQ(blend(0x00000000, QRect(1, 1, 2, 2), 1, 1), (std::array{100, 100, 100, 100}));
}

TEST_F(BlendCursor, halfTransparentPremultipliedPixel_mixes)
{
    // 0x40 is already multiplied; what shines through is 100 * 127 / 255 = 49.8.
    EXPECT_EQ(blend(0x80404000, QRect(0, 0, 6, 4), 2, 2), (std::array{50, 114, 114, 100}));
}

TEST_F(BlendCursor, pixelBrighterThanItsCoverage_doesNotWrapAround)
{
    EXPECT_EQ(blend(0x01ffffff, QRect(0, 0, 6, 4), 2, 2), (std::array{255, 255, 255, 100}));
}

TEST_F(BlendCursor, partsOutsideThePicture_areLeftOut)
{
    EXPECT_EQ(blend(0xff000000, QRect(-3, -3, 4, 4), 0, 0), (std::array{0, 0, 0, 100}));
    EXPECT_EQ(blend(0xff000000, QRect(5, 3, 4, 4), 5, 3), (std::array{0, 0, 0, 100}));
    EXPECT_EQ(blend(0xff000000, QRect(6, 0, 4, 4), 5, 0), (std::array{100, 100, 100, 100}));
    EXPECT_EQ(blend(0xff000000, QRect(-9, -9, 4, 4), 0, 0), (std::array{100, 100, 100, 100}));
}

} // namespace
