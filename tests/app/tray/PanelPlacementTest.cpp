#include "app/tray/PanelPlacement.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

constexpr QSize panel(320, 560);
constexpr QRect belowTopPanel(0, 26, 1920, 1054);

TEST(PanelPlacement, iconInATopPanel_panelIsCentredFivePointsBelowIt)
{
    EXPECT_EQ(panelPosition({1000, 2, 22, 22}, belowTopPanel, panel), QPoint(1011 - 160, 29));
}

TEST(PanelPlacement, iconNearTheRightEdge_rightEdgeStaysEightPointsInside)
{
    EXPECT_EQ(panelPosition({1896, 2, 22, 22}, belowTopPanel, panel).x(), 1920 - 8 - 320);
}

TEST(PanelPlacement, iconNearTheLeftEdge_leftEdgeStaysEightPointsInside)
{
    EXPECT_EQ(panelPosition({3, 2, 22, 22}, belowTopPanel, panel).x(), 8);
}

TEST(PanelPlacement, screenNarrowerThanPanelAndMargins_rightHandClampWins)
{
    EXPECT_EQ(panelPosition({100, 2, 22, 22}, {0, 26, 330, 800}, panel).x(), 330 - 8 - 320);
}

TEST(PanelPlacement, iconInABottomPanel_panelOpensUpwards)
{
    EXPECT_EQ(panelPosition({1000, 1052, 22, 22}, {0, 0, 1920, 1050}, panel), QPoint(1011 - 160, 1052 - 5 - 560));
    EXPECT_EQ(panelPosition({1000, 1058, 22, 22}, {0, 0, 1920, 1050}, panel).y(), 1050 - 560) << "not over the panel";
}

TEST(PanelPlacement, iconOnASecondScreenToTheLeft_panelStaysOnThatScreen)
{
    const QRect left(-1280, 0, 1280, 1024);
    EXPECT_EQ(panelPosition({-24, 2, 22, 22}, left, panel), QPoint(-8 - 320, 29));
    EXPECT_EQ(panelPosition({-1279, 2, 22, 22}, left, panel).x(), -1272);
}

TEST(PanelPlacement, iconInAPanelAtTheSide_panelStaysWhollyOnTheScreen)
{
    const QRect besidePanel(60, 0, 1860, 1080);
    for (const int y : {0, 300, 700, 1058}) {
        const QRect placed(panelPosition({10, y, 22, 22}, besidePanel, panel), panel);
        EXPECT_TRUE(besidePanel.contains(placed)) << y;
        EXPECT_EQ(placed.x(), 68);
    }
}

TEST(PanelPlacement, screenLowerThanThePanel_itsTopIsSeen)
{
    EXPECT_EQ(panelPosition({500, 2, 22, 22}, {0, 26, 800, 454}, panel).y(), 26);
}

TEST(PanelSize, screenLowerThanThePanel_panelIsAsHighAsTheScreen)
{
    EXPECT_EQ(panelSize({320, 560}, {0, 20, 910, 512}), QSize(320, 512));
    EXPECT_EQ(panelSize({320, 560}, {0, 20, 1280, 780}), QSize(320, 560));
}

} // namespace
} // namespace ostrel
