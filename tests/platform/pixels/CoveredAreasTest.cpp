#include "platform/pixels/CoveredAreas.h"

#include <gtest/gtest.h>

#include <vector>

using namespace ostrel;

namespace {

TEST(CoveredAreas, placeOnTheDesktop_isMovedToTheMonitorAndScaled)
{
    EXPECT_EQ(pixelsTouched({QRect(325, 21, 40, 30)}, QRect(320, 10, 60, 100), QSize(120, 200)),
              (QList<QRect>{{10, 22, 80, 60}}));
}

TEST(CoveredAreas, placeOverTheEdge_isCutOffAndElsewhereLeftOut)
{
    EXPECT_EQ(pixelsTouched({QRect(-20, 90, 50, 50), QRect(100, 0, 5, 5), QRect(0, -5, 5, 5)}, QRect(0, 0, 100, 100),
                            QSize(100, 100)),
              (QList<QRect>{{0, 90, 30, 10}}));
}

TEST(CoveredAreas, fractionalScale_roundsOutwards)
{
    EXPECT_EQ(pixelsTouched({QRect(11, 11, 10, 10)}, QRect(0, 0, 100, 100), QSize(150, 150)),
              (QList<QRect>{{15, 15, 18, 18}}));
}

TEST(CoveredAreas, placeOfImpossibleSize_isTheWholeMonitor)
{
    constexpr int far = 1'000'000'000;
    EXPECT_EQ(pixelsTouched({QRect(QPoint(-far, -far), QPoint(far, far)), QRect(far, 0, 5, 5)}, QRect(0, 0, 100, 50),
                            QSize(300, 150)),
              (QList<QRect>{{0, 0, 300, 150}}));
}

TEST(CoveredAreas, monitorWithoutSize_isTouchedByNothing)
{
    EXPECT_TRUE(pixelsTouched({QRect(0, 0, 5, 5)}, QRect(), QSize(300, 150)).isEmpty());
}

TEST(CoveredAreas, coveredPixels_areBlackAndNoOthers)
{
    constexpr int width = 4;
    std::vector<std::uint8_t> bytes(std::size_t(width) * 3 * 4, 0xee);
    coverPixels({QRect(1, 1, 2, 1)}, bytes.data(), width * 4);
    for (int i = 0; i < width * 3; ++i)
        EXPECT_EQ(bytes[std::size_t(i) * 4], i == 5 || i == 6 ? 0 : 0xee) << i;
}

} // namespace
