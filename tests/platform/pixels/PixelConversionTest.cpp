#include "platform/pixels/PixelConversion.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace ostrel;

namespace {

constexpr std::ptrdiff_t bytesPerPixel = 4;

/// A picture whose pixels are letters, with a gap behind every row.
class Letters
{
public:
    explicit Letters(const std::vector<std::string> &rows)
        : m_size(int(rows.front().size()), int(rows.size())), m_stride((m_size.width() + 1) * bytesPerPixel),
          m_bytes(std::size_t(m_stride * m_size.height()), 0xee)
    {
        for (int y = 0; y < m_size.height(); ++y) {
            for (int x = 0; x < m_size.width(); ++x) {
                std::uint8_t *pixel = m_bytes.data() + y * m_stride + x * bytesPerPixel;
                pixel[0] = std::uint8_t(rows[std::size_t(y)][std::size_t(x)]);
                pixel[1] = '.';
                pixel[2] = std::uint8_t(pixel[0] + 'a' - 'A');
            }
        }
    }

    PixelSource source() const { return {.pixels = m_bytes.data(), .size = m_size, .stride = m_stride}; }

private:
    QSize m_size;
    std::ptrdiff_t m_stride;
    std::vector<std::uint8_t> m_bytes;
};

/// The first colour of each pixel of the upright picture.
std::vector<std::string> converted(const PixelConversion &conversion, const Letters &letters)
{
    const QSize size = conversion.uprightSize(letters.source().size);
    std::vector<std::uint8_t> bytes(std::size_t(size.width() * size.height()) * bytesPerPixel, '?');
    convertRows(conversion, letters.source(), {.begin = 0, .end = size.height()}, bytes.data());
    std::vector<std::string> rows;
    for (int y = 0; y < size.height(); ++y) {
        rows.emplace_back();
        for (int x = 0; x < size.width(); ++x)
            rows.back() += char(bytes[std::size_t(y * size.width() + x) * bytesPerPixel]);
    }
    return rows;
}

using Rows = std::vector<std::string>;

const Letters picture({"ABC", "DEF"});

TEST(PixelConversion, quarterTurns_areUndone)
{
    EXPECT_EQ(converted({.transform = 0}, picture), (Rows{"ABC", "DEF"}));
    EXPECT_EQ(converted({.transform = 1}, picture), (Rows{"DA", "EB", "FC"}));
    EXPECT_EQ(converted({.transform = 2}, picture), (Rows{"FED", "CBA"}));
    EXPECT_EQ(converted({.transform = 3}, picture), (Rows{"CF", "BE", "AD"}));
}

TEST(PixelConversion, mirroredTurns_areUndone)
{
    EXPECT_EQ(converted({.transform = 4}, picture), (Rows{"CBA", "FED"}));
    EXPECT_EQ(converted({.transform = 5}, picture), (Rows{"AD", "BE", "CF"}));
    EXPECT_EQ(converted({.transform = 6}, picture), (Rows{"DEF", "ABC"}));
    EXPECT_EQ(converted({.transform = 7}, picture), (Rows{"FC", "EB", "DA"}));
}

TEST(PixelConversion, lastRowFirst_isTurnedOver)
{
    EXPECT_EQ(converted({.bottomUp = true}, picture), (Rows{"DEF", "ABC"}));
    EXPECT_EQ(converted({.transform = 5, .bottomUp = true}, picture), (Rows{"DA", "EB", "FC"}));
}

TEST(PixelConversion, redFirst_changesPlacesWithBlue)
{
    EXPECT_EQ(converted({.redFirst = true}, picture), (Rows{"abc", "def"}));
    EXPECT_EQ(converted({.transform = 2, .redFirst = true}, picture), (Rows{"fed", "cba"}));
}

TEST(PixelConversion, someRows_leaveTheOthersAlone)
{
    std::vector<std::uint8_t> bytes(3 * 2 * bytesPerPixel, '?');
    convertRows({.transform = 1}, picture.source(), {.begin = 1, .end = 2}, bytes.data());
    EXPECT_EQ(bytes[0], '?');
    EXPECT_EQ(bytes[2 * bytesPerPixel], 'E');
    EXPECT_EQ(bytes[3 * bytesPerPixel], 'B');
    EXPECT_EQ(bytes[4 * bytesPerPixel], '?');
}

TEST(PixelConversion, pictureLargerThanATile_isWhole)
{
    constexpr int side = 70;
    Rows rows;
    Rows turned(side, std::string(side, ' '));
    for (int y = 0; y < side; ++y) {
        rows.emplace_back();
        for (int x = 0; x < side; ++x) {
            rows.back() += char('A' + (x * 7 + y * 3) % 26);
            turned[std::size_t(side - 1 - y)][std::size_t(side - 1 - x)] = rows.back().back();
        }
    }
    EXPECT_EQ(converted({.transform = 2}, Letters(rows)), turned);
}

/// The rows that a pixel's own rectangle is said to lie in are those that it is found in.
TEST(PixelConversion, rectangle_liesInTheRowsThatShowIt)
{
    const std::string all = "ABCDEF";
    for (int transform = 0; transform < 8; ++transform) {
        const PixelConversion conversion{.transform = transform};
        const Rows upright = converted(conversion, picture);
        for (int i = 0; i < 6; ++i) {
            const auto rows = conversion.uprightRows(QRect(i % 3, i / 3, 1, 1), QSize(3, 2));
            ASSERT_TRUE(rows);
            EXPECT_EQ(rows->end, rows->begin + 1);
            EXPECT_NE(upright[std::size_t(rows->begin)].find(all[std::size_t(i)]), std::string::npos)
                << "transform " << transform << ", " << all[std::size_t(i)];
        }
    }
}

TEST(PixelConversion, rectangleBeyondThePicture_isCutOff)
{
    EXPECT_EQ(PixelConversion{}.uprightRows(QRect(-5, 1, 1 << 20, 1 << 20), QSize(3, 2)),
              (RowRange{.begin = 1, .end = 2}));
    EXPECT_EQ(PixelConversion{}.uprightRows(QRect(3, 0, 1, 1), QSize(3, 2)), std::nullopt);
    EXPECT_EQ(PixelConversion{}.uprightRows(QRect(), QSize(3, 2)), std::nullopt);
}

TEST(PixelConversion, lastRowFirst_countsEveryRowAsChanged)
{
    EXPECT_EQ((PixelConversion{.bottomUp = true}.uprightRows(QRect(0, 0, 1, 1), QSize(3, 2))),
              (RowRange{.begin = 0, .end = 2}));
}

} // namespace
