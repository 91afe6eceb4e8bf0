#include "platform/portal/CoveredPicture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <vector>

using namespace ostrel;

namespace {

using Rows = ChangedRows;

/// A picture of 6x8 pixels, no two alike, which changes as the test says.
class CoveredPictures : public testing::Test
{
protected:
    static constexpr int width = 6;
    static constexpr int height = 8;

    CoveredPictures() { std::iota(m_pixels.begin(), m_pixels.end(), 1U); }

    FrameView cover(const QList<QRect> &places, const Rows &changes = std::nullopt)
    {
        FrameView picture{.pixels = bytes(), .width = width, .height = height, .stride = width * 4};
        if (changes)
            picture.changedRows = *changes;
        return m_covered.of(picture, places);
    }
    const std::uint8_t *bytes() const { return reinterpret_cast<const std::uint8_t *>(m_pixels.data()); }
    /// Pixel by pixel.
    void expectBlackOnlyIn(const QList<QRect> &places, const FrameView &view) const
    {
        for (int i = 0; i < width * height; ++i) {
            const bool isBlack =
                std::ranges::any_of(places, [&](const QRect &place) { return place.contains(i % width, i / width); });
            const auto pixel = reinterpret_cast<const std::uint32_t *>(view.pixels)[i];
            EXPECT_EQ(pixel, isBlack ? 0 : m_pixels[std::size_t(i)]) << i;
        }
    }
    static Rows rowsOf(const FrameView &view)
    {
        if (!view.changedRows)
            return std::nullopt;
        return std::vector(view.changedRows->begin(), view.changedRows->end());
    }
    void change(int row)
    {
        for (int x = 0; x < width; ++x)
            m_pixels[std::size_t(row * width + x)] += 1'000;
    }

    std::vector<std::uint32_t> m_pixels = std::vector<std::uint32_t>(std::size_t(width) * height);
    CoveredPicture m_covered;
};

TEST_F(CoveredPictures, noPlace_isThePictureItselfWithoutACopy)
{
    const Rows changes{{{.begin = 2, .end = 3}}};
    const FrameView view = cover({}, changes);
    EXPECT_EQ(view.pixels, bytes());
    EXPECT_EQ(rowsOf(view), changes);
    EXPECT_FALSE(rowsOf(cover({})));
}

TEST_F(CoveredPictures, place_isBlackInACopyAndAllElseIsEqual)
{
    const QList<QRect> places{{1, 2, 3, 2}, {5, 7, 1, 1}};
    const auto before = m_pixels;
    const FrameView view = cover(places);
    EXPECT_NE(view.pixels, bytes());
    EXPECT_EQ(m_pixels, before) << "the picture is not ours to write";
    expectBlackOnlyIn(places, view);
}

TEST_F(CoveredPictures, placeThatStays_tellsAndCopiesWhatHasChangedAlone)
{
    const QList<QRect> places{{1, 2, 3, 2}};
    cover(places);
    change(3);
    change(6);
    const Rows changes{{{.begin = 3, .end = 4}, {.begin = 6, .end = 7}}};
    const FrameView view = cover(places, changes);
    EXPECT_EQ(rowsOf(view), changes);
    expectBlackOnlyIn(places, view);
}

TEST_F(CoveredPictures, keptCopy_isTheMemoryOfThePictureBefore)
{
    const auto *first = cover({{0, 0, 1, 1}}).pixels;
    EXPECT_EQ(cover({{2, 2, 1, 1}}).pixels, first);
}

TEST_F(CoveredPictures, placeThatMoves_tellsTheRowsOfTheOldAndTheNewOne)
{
    cover({{1, 1, 3, 2}});
    change(7);
    const QList<QRect> moved{{2, 4, 3, 1}};
    const FrameView view = cover(moved, Rows{{{.begin = 7, .end = 8}}});
    EXPECT_EQ(rowsOf(view), (Rows{{{.begin = 1, .end = 3}, {.begin = 4, .end = 5}, {.begin = 7, .end = 8}}}));
    expectBlackOnlyIn(moved, view);
}

TEST_F(CoveredPictures, placeThatComes_isAChangeOfItsRowsInAPictureThatStays)
{
    cover({});
    const QList<QRect> places{{0, 5, 2, 2}};
    const FrameView view = cover(places, Rows{std::vector<RowRange>()});
    EXPECT_EQ(rowsOf(view), (Rows{{{.begin = 5, .end = 7}}}));
    expectBlackOnlyIn(places, view);
}

TEST_F(CoveredPictures, placeThatGoes_isAChangeOfItsRowsAndThePictureItselfAgain)
{
    cover({{0, 5, 2, 2}});
    const FrameView view = cover({}, Rows{std::vector<RowRange>()});
    EXPECT_EQ(rowsOf(view), (Rows{{{.begin = 5, .end = 7}}}));
    EXPECT_EQ(view.pixels, bytes());
}

TEST_F(CoveredPictures, copyThatWasNotKeptUp_isWholeAgain)
{
    const QList<QRect> places{{0, 5, 2, 2}};
    cover(places);
    change(0);
    cover({}, Rows{{{.begin = 0, .end = 1}}});
    expectBlackOnlyIn(places, cover(places, Rows{std::vector<RowRange>()}));
}

TEST_F(CoveredPictures, unknownChanges_stayUnknownAndAreCopiedWhole)
{
    const QList<QRect> places{{0, 5, 2, 2}};
    cover(places);
    change(0);
    const FrameView view = cover(places);
    EXPECT_FALSE(rowsOf(view));
    expectBlackOnlyIn(places, view);
}

} // namespace
