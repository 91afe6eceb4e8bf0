#include "platform/portal/PortalDisplays.h"

#include "base/DisplayRules.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

using Sizes = QList<std::optional<QSize>>;

constexpr QSize screen{1920, 1080};

quint32 idOf(const QString &name)
{
    return displayIdentifiers({name}).first();
}

PortalStreamFacts streamAt(QPoint corner, const QString &id = {})
{
    return {.node = 7, .id = id, .corner = corner, .logicalSize = screen};
}

TEST(PortalDisplays, streamsWithIds_areIdentifiedByThemInWhateverOrder)
{
    const PortalStreamFacts first = streamAt({0, 0}, QStringLiteral("a"));
    const PortalStreamFacts second = streamAt({1920, 0}, QStringLiteral("b"));
    const auto one = portalDisplays({first, second}, Sizes{screen, screen});
    const auto other = portalDisplays({second, first}, Sizes{screen, screen});
    EXPECT_EQ(one.displays[0].display.displayId, idOf(QStringLiteral("a")));
    EXPECT_EQ(one.displays[0].display, other.displays[1].display);
    EXPECT_EQ(one.displays[1].display, other.displays[0].display);
    EXPECT_EQ(one.mainDisplayId, other.mainDisplayId);
}

TEST(PortalDisplays, streamsWithoutIds_areIdentifiedByTheirPlaces)
{
    const auto one = portalDisplays({streamAt({0, 0}), streamAt({-1920, 0})}, Sizes{screen, screen});
    const auto other = portalDisplays({streamAt({-1920, 0}), streamAt({0, 0})}, Sizes{screen, screen});
    EXPECT_EQ(one.displays[0].display, other.displays[1].display);
    EXPECT_EQ(one.mainDisplayId, one.displays[0].display.displayId);
    EXPECT_EQ(one.displays[1].display.bounds, QRectF(-1920, 0, 1920, 1080));
}

TEST(PortalDisplays, placesThatAreAllAlikeOrOfOneStreamAlone_areNotTold)
{
    const auto same = portalDisplays({streamAt({0, 0}), streamAt({0, 0})}, Sizes{screen, screen});
    EXPECT_TRUE(same.displays[0].display.bounds.isEmpty());
    EXPECT_TRUE(same.displays[1].display.bounds.isEmpty());
    EXPECT_NE(same.displays[0].display.displayId, same.displays[1].display.displayId);
    EXPECT_EQ(same.mainDisplayId, same.displays[0].display.displayId);
    EXPECT_TRUE(portalDisplays({streamAt({0, 0})}, Sizes{screen}).displays[0].display.bounds.isEmpty());
}

TEST(PortalDisplays, placeOfTheMonitor_isToldWhereItCanBeReliedOn)
{
    const auto two = portalDisplays({streamAt({0, 0}), streamAt({1920, 0})}, Sizes{screen, screen});
    EXPECT_EQ(two.displays[0].monitor.corner, QPoint(0, 0));
    EXPECT_EQ(two.displays[1].monitor.corner, QPoint(1920, 0));
    EXPECT_EQ(portalDisplays({streamAt({0, 0})}, Sizes{screen}).displays[0].monitor.corner, std::nullopt)
        << "those who don't know say the same";
    EXPECT_EQ(portalDisplays({streamAt({1920, 0})}, Sizes{screen}).displays[0].monitor.corner, QPoint(1920, 0));
}

TEST(PortalDisplays, sameIdTwice_isNoIdentifier)
{
    const auto displays = portalDisplays(
        {streamAt({0, 0}, QStringLiteral("x")), streamAt({1920, 0}, QStringLiteral("x"))}, Sizes{screen, screen});
    EXPECT_NE(displays.displays[0].display.displayId, idOf(QStringLiteral("x")));
    EXPECT_NE(displays.displays[0].display.displayId, displays.displays[1].display.displayId);
}

TEST(PortalDisplays, pixels_areThoseOfThePicturesElseTheLogicalOnes)
{
    const auto displays =
        portalDisplays({streamAt({0, 0}), streamAt({1920, 0}), {.node = 1, .id = {}, .corner = {}, .logicalSize = {}}},
                       Sizes{QSize(3840, 2160), std::nullopt, std::nullopt});
    ASSERT_EQ(displays.displays.size(), 2) << "what has no size can't be recorded";
    EXPECT_EQ(displays.displays[0].display.width, 3840);
    EXPECT_EQ(displays.displays[1].display.height, 1080);
}

TEST(PortalDisplays, noStreams_areNoDisplays)
{
    EXPECT_TRUE(portalDisplays({}, {}).displays.isEmpty());
}

} // namespace
