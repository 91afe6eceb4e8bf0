#include "platform/x11/capture/X11CursorLayer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

using namespace ostrel;

namespace {

constexpr int width = 6;
constexpr int height = 4;

X11CursorImage cursorOf(std::uint32_t argb, const QRect &place)
{
    return {.place = place, .pixels = std::vector(std::size_t(place.width()) * std::size_t(place.height()), argb)};
}

class BlendCursor : public testing::Test
{
protected:
    /// Draws a cursor of one colour and returns the picture's pixel at (x, y) as B, G, R, unused.
    std::array<int, 4> blend(std::uint32_t argb, const QRect &place, int x, int y)
    {
        std::vector<std::uint8_t> pixels(std::size_t(m_stride) * height, 100);
        blendCursor(cursorOf(argb, place), pixels.data(), m_stride, QRect(0, 0, width, height));
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

class CursorLayer : public testing::Test
{
protected:
    CursorLayer()
    {
        for (std::size_t i = 0; i < m_pixels.size(); ++i)
            m_pixels[i] = std::uint8_t(i * 7);
    }

    void lower(const std::optional<X11CursorImage> &cursor) { m_layer.lower(cursor, m_pixels.data(), stride); }
    void lift() { m_layer.lift(m_pixels.data(), stride); }

    static constexpr std::ptrdiff_t stride = width * 4 + 8;
    std::vector<std::uint8_t> m_pixels = std::vector<std::uint8_t>(std::size_t(stride) * height);
    X11CursorLayer m_layer{{width, height}};
};

TEST_F(CursorLayer, liftedCursor_leavesThePictureAsItWasWhereverItLay)
{
    const auto before = m_pixels;
    for (int y = -3; y <= height; ++y) {
        for (int x = -3; x <= width; ++x) {
            const QRect place(x, y, 3, 2);
            lower(cursorOf(0xff102030, place));
            EXPECT_EQ(m_pixels == before, !place.intersects(QRect(0, 0, width, height)));
            lift();
            ASSERT_TRUE(m_pixels == before) << x << ", " << y;
        }
    }
}

TEST_F(CursorLayer, cursorLowered_drawsItOverThePicture)
{
    auto expected = m_pixels;
    const X11CursorImage cursor = cursorOf(0x80402010, QRect(2, 1, 3, 2));
    blendCursor(cursor, expected.data(), stride, QRect(0, 0, width, height));
    lower(cursor);
    EXPECT_TRUE(m_pixels == expected);
    EXPECT_EQ(m_layer.rows(), (RowRange{.begin = 1, .end = 3}));
}

TEST_F(CursorLayer, sameCursorInTheSamePlace_isShownAlready)
{
    const X11CursorImage cursor = cursorOf(0x80402010, QRect(2, 1, 3, 2));
    EXPECT_FALSE(m_layer.shows(cursor));
    lower(cursor);
    EXPECT_TRUE(m_layer.shows(cursor));
    EXPECT_FALSE(m_layer.shows(cursorOf(0x80402010, QRect(2, 2, 3, 2)))) << "moved";
    EXPECT_FALSE(m_layer.shows(cursorOf(0x80402011, QRect(2, 1, 3, 2)))) << "another shape";
    EXPECT_FALSE(m_layer.shows(std::nullopt)) << "gone";
}

TEST_F(CursorLayer, cursorOutsideThePicture_isAsGoodAsNone)
{
    EXPECT_TRUE(m_layer.shows(std::nullopt));
    EXPECT_TRUE(m_layer.shows(cursorOf(0xff000000, QRect(width, 0, 3, 2))));
    lower(cursorOf(0xff000000, QRect(width, 0, 3, 2)));
    EXPECT_FALSE(m_layer.rows());
    EXPECT_TRUE(m_layer.shows(cursorOf(0xffffffff, QRect(-3, 0, 3, 2))));
    EXPECT_TRUE(m_layer.shows(std::nullopt));
}

TEST_F(CursorLayer, overwrittenPicture_isNotRestored)
{
    lower(cursorOf(0xff000000, QRect(0, 0, 3, 2)));
    std::ranges::fill(m_pixels, 9);
    m_layer.forget();
    lift();
    EXPECT_EQ(std::ranges::count(m_pixels, 9), std::ptrdiff_t(m_pixels.size()));
}

} // namespace
