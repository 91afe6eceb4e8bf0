#include "platform/wlroots/CoveredAreas.h"

#include <gtest/gtest.h>

#include <vector>

using namespace ostrel;

namespace {

TEST(CoveredAreas, placeOnTheDesktop_isMovedToTheOutputAndScaled)
{
    const WaylandOutputLook output{
        .name = {}, .mode = {200, 120}, .transform = 1, .scale = 2, .corner = {320, 10}, .logicalSize = {}};
    EXPECT_EQ(pixelsTouched({QRect(325, 21, 40, 30)}, output), (QList<QRect>{{10, 22, 80, 60}}));
}

TEST(CoveredAreas, placeOverTheEdge_isCutOffAndElsewhereLeftOut)
{
    const WaylandOutputLook output{.name = {}, .mode = {100, 100}, .corner = {}, .logicalSize = {}};
    EXPECT_EQ(pixelsTouched({QRect(-20, 90, 50, 50), QRect(100, 0, 5, 5), QRect(0, -5, 5, 5)}, output),
              (QList<QRect>{{0, 90, 30, 10}}));
}

TEST(CoveredAreas, fractionalScale_roundsOutwards)
{
    const WaylandOutputLook output{
        .name = {}, .mode = {150, 150}, .scale = 2, .corner = {}, .logicalSize = QSize(100, 100)};
    EXPECT_EQ(pixelsTouched({QRect(11, 11, 10, 10)}, output), (QList<QRect>{{15, 15, 18, 18}}));
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
