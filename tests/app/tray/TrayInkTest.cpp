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
    EXPECT_EQ(trayInk({.foreground = own, .background = QColor(Qt::white), .wantsDark = true}), own);
}

TEST(TrayInk, backgroundThatIsSeen_isStoodOutFrom)
{
    EXPECT_TRUE(isLight(trayInk({.foreground = {}, .background = QColor(0x20, 0x20, 0x20), .wantsDark = false})));
    EXPECT_FALSE(isLight(trayInk({.foreground = {}, .background = QColor(0xE0, 0xE0, 0xE0), .wantsDark = true})));
}

TEST(TrayInk, nothingKnown_panelIsTakenForDark)
{
    EXPECT_TRUE(isLight(trayInk({})));
    EXPECT_TRUE(isLight(trayInk({.foreground = {}, .background = {}, .wantsDark = true})));
}

TEST(TrayInk, lightDesktopWanted_panelIsTakenForLight)
{
    EXPECT_FALSE(isLight(trayInk({.foreground = {}, .background = {}, .wantsDark = false})));
}

} // namespace
} // namespace ostrel
