#include "platform/kwin/KWinEffects.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

TEST(KWinEffects, namesOfEitherVersion_areKnown)
{
    for (const char *effect : {"overview", "windowview", "desktopgrid", "zoom", "squash", "kwin4_effect_squash"})
        EXPECT_TRUE(showsWindowsElsewhere(effect)) << effect;
}

TEST(KWinEffects, othersAndUnknownOnes_leaveWindowsWhereTheyAre)
{
    for (const char *effect : {"", "blur", "kwin4_effect_fade", "kwin4_effect_", "over", "overview2", "slidingpopups"})
        EXPECT_FALSE(showsWindowsElsewhere(effect)) << effect;
}

} // namespace
