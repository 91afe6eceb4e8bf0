#include "platform/sway/SwayTree.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// A desktop of two outputs with one window, described by the given fields, on the second.
QByteArray treeWith(const QByteArray &windowFields)
{
    return R"({"type":"root","focused":false,"nodes":[
        {"type":"output","name":"__i3","rect":{"x":-50,"y":-50,"width":10,"height":10},"nodes":[]},
        {"type":"output","name":"DP-1","rect":{"x":100,"y":50,"width":640,"height":480},"nodes":[]},
        {"type":"output","name":"DP-2","rect":{"x":740,"y":50,"width":640,"height":480},"nodes":[
            {"type":"workspace","focused":false,"nodes":[],"floating_nodes":[{)" +
           windowFields + "}]}]}]}";
}

const QByteArray editor = R"("type":"con","focused":true,"app_id":"org.example.Editor","name":"notes.txt","pid":4321,)"
                          R"("rect":{"x":760,"y":90,"width":300,"height":200},)"
                          R"("deco_rect":{"x":760,"y":70,"width":300,"height":20})";

TEST(SwayTree, focusedWindow_isDescribedInTheMainDisplaysCoordinates)
{
    EXPECT_EQ(focusIn(treeWith(editor)), (SwayFocus{.windowClass = QStringLiteral("org.example.Editor"),
                                                    .title = QStringLiteral("notes.txt"),
                                                    .pid = 4321,
                                                    .frame = QRectF(660, 20, 300, 220)}));
}

TEST(SwayTree, windowOfAnXProgram_isNamedByItsClass)
{
    const auto focus = focusIn(treeWith(R"("focused":true,"app_id":null,"pid":7,"name":"xterm",)"
                                        R"("window_properties":{"class":"XTerm","instance":"xterm"})"));
    ASSERT_TRUE(focus);
    EXPECT_EQ(focus->windowClass, QStringLiteral("XTerm"));
}

TEST(SwayTree, nothingFocused_isAbsent)
{
    EXPECT_EQ(focusIn(treeWith(QByteArray(editor).replace("\"focused\":true", "\"focused\":false"))), std::nullopt);
}

TEST(SwayTree, focusedGroupOfWindows_isAbsent)
{
    EXPECT_EQ(focusIn(treeWith(R"("type":"con","focused":true,"name":"tabs","nodes":[])")), std::nullopt);
}

TEST(SwayTree, wrongTypes_costThatFactAlone)
{
    const auto focus = focusIn(treeWith(R"("focused":true,"app_id":"a","name":17,"pid":"4321","rect":[1,2,3,4])"));
    EXPECT_EQ(focus, (SwayFocus{.windowClass = QStringLiteral("a"), .title = {}, .pid = 0, .frame = {}}));
}

TEST(SwayTree, impossibleNumbers_areAbsent)
{
    const auto focus = focusIn(treeWith(R"("focused":true,"app_id":"a","pid":99999999999,)"
                                        R"("rect":{"x":1e300,"y":0,"width":10,"height":-10})"));
    EXPECT_EQ(focus, (SwayFocus{.windowClass = QStringLiteral("a"), .title = {}, .pid = 0, .frame = {}}));
}

TEST(SwayTree, textThatIsNoTree_isAbsent)
{
    for (const char *text : {"", "{", "[]", "null", "{\"nodes\":7,\"floating_nodes\":{}}", "\xff\xfe"})
        EXPECT_EQ(focusIn(text), std::nullopt) << text;
}

TEST(SwayTree, deepNesting_isAbsent)
{
    EXPECT_EQ(focusIn(QByteArray("{\"nodes\":[").repeated(100'000)), std::nullopt);
}

} // namespace
