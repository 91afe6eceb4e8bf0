#include "capture/KeptDownsample.h"

#include "capture/ThumbnailCells.h"
#include "support/FakeDisplaySource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace ostrel;

namespace {

/// A picture of noise whose rows change, and a thumbnail that is kept of it.
class KeptDownsampleTest : public testing::Test
{
protected:
    void resize(int width, int height)
    {
        m_picture = FakePicture(width, height);
        for (std::uint8_t &byte : m_picture.bytes())
            byte = std::uint8_t(m_random());
    }

    /// Changes the rows, and says so.
    void change(const std::vector<RowRange> &rows)
    {
        const auto stride = std::size_t(m_picture.view().stride);
        for (const RowRange &range : rows) {
            for (std::size_t i = std::size_t(range.begin) * stride; i < std::size_t(range.end) * stride; ++i)
                m_picture.bytes()[i] = std::uint8_t(m_random());
        }
        note(rows);
    }
    void note(const std::vector<RowRange> &rows)
    {
        FrameView view = m_picture.view();
        view.changedRows = rows;
        m_kept.noteChanges(view);
    }
    void noteUnknown() { m_kept.noteChanges(m_picture.view()); }

    void expectEqualsFreshOne()
    {
        const Downsample *kept = m_kept.update(m_picture.view(), m_downsampler);
        ASSERT_TRUE(kept);
        ASSERT_TRUE(*kept == *makeReferenceDownsample(m_picture.view()));
    }

    RowRange randomRows()
    {
        const int height = m_picture.view().height;
        const int begin = int(m_random() % unsigned(height));
        return {begin, begin + 1 + int(m_random() % unsigned(height - begin))};
    }

    std::mt19937 m_random{7};
    FakePicture m_picture{1, 1};
    Downsampler m_downsampler;
    KeptDownsample m_kept;
};

TEST_F(KeptDownsampleTest, randomChangesOfPicturesOfManyHeights_equalAFreshOne)
{
    for (const int height : {1, 2, 35, 71, 72, 73, 100, 144, 200, 1080}) {
        resize(130, height);
        noteUnknown();
        expectEqualsFreshOne();
        for (int round = 0; round < 40; ++round) {
            change({randomRows()});
            expectEqualsFreshOne();
        }
    }
}

TEST_F(KeptDownsampleTest, changesOfPicturesThatWereNotReduced_addUp)
{
    resize(130, 200);
    noteUnknown();
    expectEqualsFreshOne();
    change({{.begin = 3, .end = 4}, {.begin = 60, .end = 90}});
    change({});
    change({{.begin = 199, .end = 200}});
    expectEqualsFreshOne();
}

TEST_F(KeptDownsampleTest, firstPicture_isAllNewWhateverItSays)
{
    resize(130, 200);
    note({});
    expectEqualsFreshOne();
}

TEST_F(KeptDownsampleTest, pictureOfAnotherSize_isAllNewWhateverItSays)
{
    resize(130, 200);
    noteUnknown();
    expectEqualsFreshOne();
    for (const QSize size : {QSize(131, 200), QSize(131, 199), QSize(130, 200)}) {
        resize(size.width(), size.height());
        note({});
        expectEqualsFreshOne();
    }
}

TEST_F(KeptDownsampleTest, unchangedRows_areNotReadAgain)
{
    resize(130, 144);
    noteUnknown();
    const Downsample before = *m_kept.update(m_picture.view(), m_downsampler);
    std::ranges::fill(m_picture.bytes(), std::uint8_t(0));
    note({{.begin = 20, .end = 22}}); // two rows of the picture are one of the thumbnail: the eleventh
    const Downsample after = *m_kept.update(m_picture.view(), m_downsampler);
    constexpr std::ptrdiff_t rowBytes = std::ptrdiff_t(downsampleWidth) * 4;
    for (int y = 0; y < downsampleHeight; ++y) {
        const bool same = std::equal(before.begin() + y * rowBytes, before.begin() + (y + 1) * rowBytes,
                                     after.begin() + y * rowBytes);
        EXPECT_EQ(same, y != 10) << y;
    }
}

TEST_F(KeptDownsampleTest, pictureWithoutPixels_isNoneAndTheNextOneIsWhole)
{
    resize(130, 200);
    noteUnknown();
    expectEqualsFreshOne();
    m_kept.noteChanges({});
    EXPECT_FALSE(m_kept.update({}, m_downsampler));
    note({});
    expectEqualsFreshOne();
}

TEST_F(KeptDownsampleTest, rowsOutsideThePicture_areIgnored)
{
    resize(130, 200);
    noteUnknown();
    expectEqualsFreshOne();
    note({{.begin = -5, .end = -1}, {.begin = 250, .end = 300}, {.begin = 9, .end = 9}});
    expectEqualsFreshOne();
}

TEST(CellsShowing, everyRowOfEveryHeight_areExactlyTheCellsThatReadIt)
{
    for (std::int64_t extent = 1; extent <= 300; ++extent) {
        for (std::int64_t row = 0; row < extent; ++row) {
            const CellRange shown = cellsShowing(row, row + 1, downsampleHeight, extent);
            for (int cell = 0; cell < downsampleHeight; ++cell) {
                const CellRange read = cellRange(cell, downsampleHeight, extent);
                ASSERT_EQ(read.begin <= row && row < read.end, shown.begin <= cell && cell < shown.end)
                    << "row " << row << " of " << extent << ", cell " << cell;
            }
        }
    }
}

TEST(CellsShowing, rangesOfRows_areTheCellsFromTheFirstToTheLast)
{
    for (const std::int64_t extent : {1, 40, 72, 100, 1080, 2160}) {
        for (std::int64_t begin = 0; begin < extent; begin += 7) {
            for (std::int64_t end = begin + 1; end <= extent; end += 11) {
                const CellRange shown = cellsShowing(begin, end, downsampleHeight, extent);
                EXPECT_EQ(shown.begin, cellsShowing(begin, begin + 1, downsampleHeight, extent).begin);
                EXPECT_EQ(shown.end, cellsShowing(end - 1, end, downsampleHeight, extent).end);
            }
        }
    }
}

} // namespace
