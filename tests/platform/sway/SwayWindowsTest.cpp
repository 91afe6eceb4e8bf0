#include "platform/sway/SwayWindows.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// An output with these windows in one group.
QByteArray treeWith(const QByteArray &windows, const QByteArray &layout = "tabbed")
{
    return R"({"type":"root","rect":{"x":0,"y":0,"width":400,"height":300},"nodes":[
        {"type":"output","name":"DP-1","rect":{"x":0,"y":0,"width":400,"height":300},"nodes":[
        {"type":"workspace","layout":")" +
           layout + R"(","rect":{"x":0,"y":0,"width":400,"height":300},"floating_nodes":[],"nodes":[)" + windows +
           "]}]}]}";
}

QByteArray window(const QByteArray &appId, const QByteArray &visible, const QByteArray &more)
{
    return R"({"type":"con","name":"Title","pid":5,"app_id":")" + appId + R"(","visible":)" + visible + "," + more +
           R"(,"nodes":[],"floating_nodes":[]})";
}

const QByteArray tabbed = R"("rect":{"x":0,"y":25,"width":400,"height":275},)";
const QByteArray firstTab = tabbed + R"("deco_rect":{"x":0,"y":0,"width":200,"height":25})";
const QByteArray secondTab = tabbed + R"("deco_rect":{"x":200,"y":0,"width":200,"height":25})";
const QByteArray stacked = R"("rect":{"x":0,"y":50,"width":400,"height":250},)";

QList<QRect> placesOfFirst(const QByteArray &json)
{
    const auto windows = windowsShownIn(json);
    return windows && !windows->isEmpty() ? windows->first().places : QList<QRect>();
}

TEST(SwayWindows, seenWindow_isToldWithItsTitle)
{
    const auto windows = windowsShownIn(treeWith(window("a", "true", firstTab)));
    ASSERT_TRUE(windows);
    ASSERT_EQ(windows->size(), 1);
    EXPECT_EQ(windows->first(), (SwayWindow{.windowClass = QStringLiteral("a"),
                                            .title = QStringLiteral("Title"),
                                            .pid = 5,
                                            .places = {{0, 25, 400, 275}, {-1, 0, 202, 25}}}));
}

TEST(SwayWindows, windowBehindItsTab_isItsTabAlone)
{
    EXPECT_EQ(placesOfFirst(treeWith(window("a", "false", firstTab) + "," + window("b", "true", secondTab))),
              (QList<QRect>{{-1, 0, 202, 25}}));
}

TEST(SwayWindows, groupThatIsNotSeen_isNowhere)
{
    const auto windows =
        windowsShownIn(treeWith(window("a", "false", firstTab) + "," + window("b", "false", secondTab)));
    ASSERT_TRUE(windows);
    EXPECT_TRUE(windows->isEmpty());
}

TEST(SwayWindows, tabUnderAFullScreenWindow_isNowhere)
{
    const auto windows =
        windowsShownIn(treeWith(window("a", "false", firstTab) + "," +
                                window("b", "true",
                                       R"("fullscreen_mode":1,"rect":{"x":0,"y":0,"width":400,"height":300},)"
                                       R"("deco_rect":{"x":0,"y":0,"width":0,"height":0})")));
    ASSERT_TRUE(windows);
    ASSERT_EQ(windows->size(), 1);
    EXPECT_EQ(windows->first().windowClass, QStringLiteral("b"));
}

TEST(SwayWindows, stackedTitles_areAboveEachOther)
{
    const QByteArray first = stacked + R"("deco_rect":{"x":0,"y":0,"width":400,"height":25})";
    const QByteArray second = stacked + R"("deco_rect":{"x":0,"y":25,"width":400,"height":25})";
    const auto windows =
        windowsShownIn(treeWith(window("a", "false", first) + "," + window("b", "true", second), "stacked"));
    ASSERT_TRUE(windows);
    ASSERT_EQ(windows->size(), 2);
    EXPECT_EQ((*windows)[0].places, (QList<QRect>{{-1, 0, 402, 25}}));
    EXPECT_EQ((*windows)[1].places, (QList<QRect>{{0, 50, 400, 250}, {-1, 25, 402, 25}}));
}

TEST(SwayWindows, windowOfAnXProgram_isNamedByBothPartsOfItsClass)
{
    const auto windows = windowsShownIn(
        treeWith(window("", "true", firstTab + R"(,"window_properties":{"class":"XTerm","instance":"xterm"})")));
    ASSERT_TRUE(windows);
    EXPECT_EQ(windows->first().windowClass, QStringLiteral("xterm XTerm"));
}

TEST(SwayWindows, windowWithoutAPlace_makesTheWholeAnswerUseless)
{
    EXPECT_FALSE(windowsShownIn(treeWith(window("a", "true", R"("rect":[1,2,3,4])"))));
    EXPECT_FALSE(windowsShownIn(treeWith(window("a", "true", R"("rect":{"x":1e300,"y":0,"width":10,"height":10})"))));
}

TEST(SwayWindows, textThatIsNoTree_isAbsent)
{
    EXPECT_FALSE(windowsShownIn("{\"type\":\"root\",\"nodes\":["));
    EXPECT_FALSE(windowsShownIn("[]"));
    EXPECT_FALSE(windowsShownIn("{\"success\":false}"));
}

} // namespace
