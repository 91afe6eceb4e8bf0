#include "app/tray/TrayInk.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

bool isLight(const QColor &color)
{
    return qGray(color.rgb()) > 128;
}

TEST(TrayInk, trayThatSaysItsColour_hasIt)
{
    const QColor own(0x12, 0x80, 0xF0);
    const TrayInk ink = trayInk({.foreground = own, .background = QColor(Qt::white), .wantsDark = true});
    EXPECT_EQ(ink.marks, own);
    EXPECT_FALSE(ink.outline);
}

TEST(TrayInk, backgroundThatIsSeen_isStoodOutFromWithoutAnOutline)
{
    const TrayInk onDark = trayInk({.foreground = {}, .background = QColor(0x20, 0x20, 0x20), .wantsDark = false});
    EXPECT_TRUE(isLight(onDark.marks));
    EXPECT_FALSE(onDark.outline);
    const TrayInk onLight = trayInk({.foreground = {}, .background = QColor(0xE0, 0xE0, 0xE0), .wantsDark = true});
    EXPECT_FALSE(isLight(onLight.marks));
    EXPECT_FALSE(onLight.outline);
}

TEST(TrayInk, nothingKnown_panelIsTakenForDarkAndTheOutlineIsForALightOne)
{
    const TrayInk ink = trayInk({});
    EXPECT_TRUE(isLight(ink.marks));
    ASSERT_TRUE(ink.outline);
    EXPECT_FALSE(isLight(*ink.outline));
    EXPECT_EQ(trayInk({.foreground = {}, .background = {}, .wantsDark = true}), ink);
}

TEST(TrayInk, lightDesktopWanted_panelIsTakenForLightAndTheOutlineIsForADarkOne)
{
    const TrayInk ink = trayInk({.foreground = {}, .background = {}, .wantsDark = false});
    EXPECT_FALSE(isLight(ink.marks));
    ASSERT_TRUE(ink.outline);
    EXPECT_TRUE(isLight(*ink.outline));
}

} // namespace
} // namespace ostrel
