#include "platform/x11/capture/X11RowBands.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

const QRect area(100, 200, 300, 400);

std::vector<RowRange> rowsOf(const std::vector<QRect> &changes)
{
    return changedRowsOf(changes, area);
}

TEST(X11RowBands, rectangles_areRowsCountedFromTheAreasTop)
{
    EXPECT_EQ(rowsOf({{150, 210, 10, 5}}), (std::vector<RowRange>{{10, 15}}));
}

TEST(X11RowBands, noRectangles_areNoRows)
{
    EXPECT_TRUE(rowsOf({}).empty());
}

TEST(X11RowBands, partsOutsideTheArea_areCutOff)
{
    EXPECT_EQ(rowsOf({{0, 0, 1'000, 1'000}}), (std::vector<RowRange>{{0, 400}}));
    EXPECT_EQ(rowsOf({{90, 190, 20, 15}}), (std::vector<RowRange>{{0, 5}}));
    EXPECT_EQ(rowsOf({{390, 595, 20, 15}}), (std::vector<RowRange>{{395, 400}}));
}

TEST(X11RowBands, rectanglesBesideAboveAndBelowTheArea_areNone)
{
    EXPECT_TRUE(rowsOf({{0, 300, 100, 10}, {400, 300, 10, 10}, {200, 190, 10, 10}, {200, 600, 10, 10}}).empty());
}

TEST(X11RowBands, overlappingAndUnorderedRectangles_areUnited)
{
    EXPECT_EQ(rowsOf({{150, 400, 1, 50}, {150, 210, 1, 20}, {160, 220, 1, 5}, {170, 225, 1, 30}}),
              (std::vector<RowRange>{{10, 55}, {200, 250}}));
}

TEST(X11RowBands, smallGap_isFilledAndALargerOneKept)
{
    EXPECT_EQ(mergedRows({{0, 10}, {26, 30}}), (std::vector<RowRange>{{0, 30}}));
    EXPECT_EQ(mergedRows({{0, 10}, {27, 30}}), (std::vector<RowRange>{{0, 10}, {27, 30}}));
}

} // namespace
