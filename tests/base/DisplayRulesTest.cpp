#include "base/DisplayRules.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

TEST(DisplayRules, identifier_isTheNamesHash)
{
    EXPECT_EQ(displayIdentifiers({QStringLiteral("a")}), QList<quint32>{0xe40c292c});
    EXPECT_EQ(displayIdentifiers({QString()}), QList<quint32>{2166136261u});
}

TEST(DisplayRules, identifiers_doNotDependOnTheOrder)
{
    const QString one = QStringLiteral("DP-1");
    const QString two = QStringLiteral("HDMI-A-1");
    const auto forwards = displayIdentifiers({one, two});
    EXPECT_EQ(displayIdentifiers({two, one}), (QList<quint32>{forwards[1], forwards[0]}));
    EXPECT_EQ(displayIdentifiers({two}), QList<quint32>{forwards[1]});
}

TEST(DisplayRules, sameNameTwice_isTwoDisplays)
{
    const auto identifiers = displayIdentifiers({QStringLiteral("a"), QStringLiteral("a")});
    EXPECT_EQ(identifiers, (QList<quint32>{0xe40c292c, 0xe40c292d}));
}

TEST(DisplayRules, mainDisplay_isTheOneInTheCorner)
{
    EXPECT_EQ(mainDisplayIndex({QPoint(-800, -600), QPoint(0, 0), QPoint(800, 0)}), 1);
}

TEST(DisplayRules, mainDisplayWithNoneInTheCorner_isTheFirstInReadingOrder)
{
    EXPECT_EQ(mainDisplayIndex({QPoint(5, 20), QPoint(900, 10), QPoint(30, 10)}), 2);
    EXPECT_EQ(mainDisplayIndex({}), std::nullopt);
}

} // namespace
