#include "platform/devtools/Tabs.h"

#include "support/Printers.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace ostrel {
namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

Tab tab(const char *title, const char *id = "1")
{
    return {.id = text(id), .url = text("https://example.org/"), .title = text(title), .profile = text("P")};
}

QJsonObject json(const char *utf8)
{
    return QJsonDocument::fromJson(utf8).object();
}

/// The titles among these that may be the one of a window.
QStringList candidateTitles(const char *window, std::initializer_list<const char *> titles)
{
    QList<Tab> tabs;
    for (const char *title : titles)
        tabs.append(tab(title));
    QStringList found;
    for (const Tab &each : candidatesFor(text(window), tabs).tabs)
        found.append(each.title);
    return found;
}

TEST(TabsIn, answer_givesItsPagesAlone)
{
    const auto tabs = tabsIn(json(R"({"targetInfos": [
        {"targetId": "A", "type": "page", "title": "T", "url": "https://a/", "browserContextId": "P"},
        {"targetId": "B", "type": "service_worker", "title": "T", "url": "https://a/", "browserContextId": "P"},
        {"targetId": "C", "type": "browser_ui", "title": "T", "url": "chrome://x/", "browserContextId": "P"}]})"));
    ASSERT_TRUE(tabs);
    EXPECT_EQ(*tabs,
              (QList<Tab>{{.id = text("A"), .url = text("https://a/"), .title = text("T"), .profile = text("P")}}));
}

TEST(TabsIn, wrongTypes_costThatTabOrThatFact)
{
    const auto tabs = tabsIn(json(R"({"targetInfos": [7, null, "page", [], {"type": "page"}, {"type": ["page"]},
        {"targetId": 3, "type": "page"}, {"targetId": "A", "type": "page", "title": 5, "url": {}}]})"));
    ASSERT_TRUE(tabs);
    EXPECT_EQ(*tabs, (QList<Tab>{{.id = text("A"), .url = {}, .title = {}, .profile = {}}}));
}

TEST(TabsIn, whatIsNoAnswer_isNotTakenForABrowserWithoutPages)
{
    EXPECT_FALSE(tabsIn({}));
    EXPECT_FALSE(tabsIn(json(R"({"targetInfos": {}})")));
    EXPECT_EQ(tabsIn(json(R"({"targetInfos": []})")), QList<Tab>());
}

TEST(CandidatesFor, windowTitle_choosesTheTabsBeforeTheBrowsersName)
{
    EXPECT_EQ(candidateTitles("Plan - Chromium", {"Plan", "Plan B", "Pla", "Chromium"}), QStringList(text("Plan")));
    EXPECT_EQ(candidateTitles("Plan", {"Plan"}), QStringList(text("Plan"))) << "a window that is an application";
    EXPECT_EQ(candidateTitles("Plan \u2013 Google Chrome", {"Plan"}), QStringList(text("Plan")));
    EXPECT_EQ(candidateTitles("Plan \u2014 Vivaldi", {"Plan"}), QStringList(text("Plan")));
    EXPECT_EQ(candidateTitles("Planning - Chromium", {"Plan"}), QStringList());
    EXPECT_EQ(candidateTitles("plan - Chromium", {"Plan"}), QStringList());
}

TEST(CandidatesFor, titleThatBeginsAnotherOne_doesNotStandForIt)
{
    EXPECT_EQ(candidateTitles("Plan - Notes - Chromium", {"Plan", "Plan - Notes"}), QStringList(text("Plan - Notes")));
}

TEST(CandidatesFor, blanksAndInvisibleMarks_makeNoDifference)
{
    EXPECT_EQ(candidateTitles("A  plan - Chromium", {" A\tplan\n"}), QStringList(text(" A\tplan\n")));
    EXPECT_EQ(candidateTitles("\u202bPlan\u202c - Microsoft\u200b Edge", {"Plan"}), QStringList(text("Plan")));
}

TEST(CandidatesFor, exactTitle_isEnoughForASingleTab)
{
    const TabCandidates candidates = candidatesFor(text("Plan - Chromium"), {tab("Plan"), tab("Other")});
    EXPECT_TRUE(candidates.isTitleEnough);
    EXPECT_FALSE(candidates.needsFocus);
}

TEST(CandidatesFor, profileBeforeTheBrowsersName_isFoundAndNeedsTheKeyboard)
{
    const TabCandidates candidates = candidatesFor(text("Plan - Work - Microsoft Edge"), {tab("Plan")});
    EXPECT_EQ(candidates.tabs.size(), 1);
    EXPECT_FALSE(candidates.isTitleEnough);
    EXPECT_TRUE(candidates.needsFocus);
}

TEST(CandidatesFor, noWindowTitle_leavesAllTabsAndNoneIsCertain)
{
    for (const auto &title : {std::optional<QString>(), std::optional(text(" "))}) {
        const TabCandidates candidates = candidatesFor(title, {tab("A"), tab("B")});
        EXPECT_EQ(candidates.tabs.size(), 2);
        EXPECT_FALSE(candidates.isTitleEnough);
    }
}

TEST(CandidatesFor, tabWithoutTitle_isNoWindows)
{
    EXPECT_EQ(candidateTitles(" - Chromium", {"", "\u200b"}), QStringList());
}

class FrontTab : public testing::Test
{
protected:
    std::optional<Tab> front(const QList<TabState> &states, bool needsFocus = false) const
    {
        return frontTab({.tabs = {m_first, m_second}, .isTitleEnough = true, .needsFocus = needsFocus}, states);
    }

    static constexpr TabState hidden{.isVisible = false, .isFocused = false};
    static constexpr TabState visible{.isVisible = true, .isFocused = false};
    static constexpr TabState focused{.isVisible = true, .isFocused = true};
    const Tab m_first = tab("T", "1");
    const Tab m_second = tab("T", "2");
};

TEST_F(FrontTab, onlyTabWithTheKeyboard_isTheOne)
{
    EXPECT_EQ(front({visible, focused}), m_second);
    EXPECT_EQ(front({focused, hidden}), m_first);
}

TEST_F(FrontTab, keyboardInTheAddressBar_leavesTheOnlyVisibleOne)
{
    EXPECT_EQ(front({visible, hidden}), m_first);
    EXPECT_EQ(front({visible, hidden}, true), std::nullopt) << "not where the title fits loosely";
}

TEST_F(FrontTab, undecided_isNone)
{
    EXPECT_EQ(front({visible, visible}), std::nullopt);
    EXPECT_EQ(front({hidden, hidden}), std::nullopt);
    EXPECT_EQ(front({focused, focused}), std::nullopt);
}

TEST(TabText, addressAndTitle_standOnALineEach)
{
    EXPECT_EQ(tabText(tab("A\n plan")), text("https://example.org/\nA plan"));
}

TEST(TabText, addressThatIsNone_isLeftEmpty)
{
    Tab odd = tab("T");
    odd.url = text("data:") + QString(5000, u'x');
    EXPECT_EQ(tabText(odd), text("\nT"));
    odd.url = text("https://a/\nb");
    EXPECT_EQ(tabText(odd), text("\nT"));
}

} // namespace
} // namespace ostrel
