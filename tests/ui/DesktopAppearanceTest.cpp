#include "app/popover/DesktopAppearance.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

TEST(DesktopAppearance, wishedScheme_goesBeforeThePalette)
{
    DesktopAppearance appearance;
    int changes = 0;
    QObject::connect(&appearance, &DesktopAppearance::darkChanged, [&changes] { ++changes; });
    appearance.setDark(true);
    appearance.adopt({.dark = false, .textScale = {}, .reducedMotion = {}});
    EXPECT_FALSE(appearance.isDark());
    appearance.setDark(false);
    appearance.setDark(true);
    EXPECT_FALSE(appearance.isDark());
    appearance.adopt({});
    EXPECT_TRUE(appearance.isDark()) << "without a wish the palette decides";
    EXPECT_EQ(changes, 3);
}

TEST(DesktopAppearance, textScaleAndMotion_areAsWishedElseAsDesigned)
{
    DesktopAppearance appearance;
    appearance.adopt({.dark = {}, .textScale = 1.25, .reducedMotion = true});
    EXPECT_EQ(appearance.textScale(), 1.25);
    EXPECT_TRUE(appearance.reducedMotion());
    appearance.adopt({.dark = {}, .textScale = 9.0, .reducedMotion = {}});
    EXPECT_EQ(appearance.textScale(), DesktopAppearance::largestTextScale);
    EXPECT_FALSE(appearance.reducedMotion());
    appearance.adopt({});
    EXPECT_EQ(appearance.textScale(), 1.0);
}

} // namespace
