#include "platform/atspi/AtspiTree.h"
#include "FakeProgram.h"
#include "platform/atspi/AtspiRoles.h"
#include "support/VirtualDesktop.h"

#include <QElapsedTimer>

#include <algorithm>
#include <gtest/gtest.h>
#include <unistd.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// A program with one active window on an accessibility bus of its own.
class AtspiTreeOfAProgram : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_desktop = std::make_unique<VirtualDesktop>(VirtualDesktop::Options{});
        s_desktop->startAccessibility();
        s_desktop->enter();
    }
    static void TearDownTestSuite() { s_desktop.reset(); }

    AtspiTreeOfAProgram()
    {
        m_program.set("root", {.role = 75, .children = {"window"}});
        m_program.set("window", {.role = 23, .name = text("Window"), .states = {AtspiState::active}});
    }

    void begin() { m_tree.beginSample(QDeadlineTimer(5s)); }
    AccessibilityElementPtr application()
    {
        begin();
        return m_tree.application(::getpid());
    }
    AccessibilityElementPtr elementOf(const AccessibilityElementPtr &element, const char *name)
    {
        const auto value = m_tree.attribute(element, text(name));
        const auto *found = std::get_if<AccessibilityElementPtr>(&value);
        return found ? *found : nullptr;
    }
    QString textOf(const AccessibilityElementPtr &element, const char *name)
    {
        const auto value = m_tree.attribute(element, text(name));
        const auto *found = std::get_if<QString>(&value);
        return found ? *found : QString();
    }
    QList<AccessibilityElementPtr> childrenOf(const AccessibilityElementPtr &element)
    {
        const auto value = m_tree.attribute(element, text("AXChildren"));
        const auto *found = std::get_if<QList<AccessibilityElementPtr>>(&value);
        return found ? *found : QList<AccessibilityElementPtr>();
    }
    QString windowTitle() { return textOf(elementOf(application(), "AXFocusedWindow"), "AXTitle"); }
    AccessibilityElementPtr focused() { return elementOf(application(), "AXFocusedUIElement"); }
    /// The focused control's role when it is this one.
    QString roleOf(const FakeProgram::Object &object)
    {
        m_program.set("control", object);
        m_program.answerSearch("window", {"control"});
        return textOf(focused(), "AXRole");
    }
    QList<AccessibilityElementPtr> pages()
    {
        return m_tree.find(application(), text("AXWebArea")).value_or(QList<AccessibilityElementPtr>());
    }

    /// A page that has the focus while nothing else has, as some samples have found.
    void showLonePage()
    {
        m_program.set("page", {.role = 95, .name = text("Page")});
        m_program.set("control", {.role = 88, .name = text("Link")});
        m_program.answerSearch("window", {"page"});
        for (int sample = 0; sample < 3; ++sample)
            EXPECT_EQ(textOf(focused(), "AXTitle"), text("Page"));
        m_program.takeQuestions();
    }
    /// How often the next sample's answer to what has the focus takes a search.
    qsizetype searchesForFocus()
    {
        m_program.takeQuestions();
        focused();
        return m_program.takeQuestions().count("window.GetMatches");
    }

    static std::unique_ptr<VirtualDesktop> s_desktop;
    FakeProgram m_program;
    std::chrono::steady_clock::time_point m_now{1h};
    AtspiTree m_tree{[this] { return m_now; }};
};
std::unique_ptr<VirtualDesktop> AtspiTreeOfAProgram::s_desktop;

TEST_F(AtspiTreeOfAProgram, severalWindows_theActiveOneHasTheFocus)
{
    m_program.set("root", {.children = {"other", "window"}});
    m_program.set("other", {.name = text("Other")});
    EXPECT_EQ(windowTitle(), text("Window"));
    EXPECT_EQ(childrenOf(application()).size(), 1);
}

TEST_F(AtspiTreeOfAProgram, noActiveWindow_theOnlyOneWithANameHasTheFocus)
{
    m_program.set("root", {.children = {"popup", "window"}});
    m_program.set("popup", {.role = 23});
    m_program.set("window", {.name = text("Window")});
    EXPECT_EQ(windowTitle(), text("Window"));
}

TEST_F(AtspiTreeOfAProgram, uncertainWhichWindowIsActive_noneIsSearched)
{
    m_program.set("root", {.children = {"other", "window"}});
    m_program.set("other", {.name = text("Other")});
    m_program.set("window", {.name = text("Window")});
    EXPECT_FALSE(elementOf(application(), "AXFocusedWindow"));
    EXPECT_FALSE(focused());
    EXPECT_TRUE(childrenOf(application()).isEmpty());
    EXPECT_TRUE(pages().isEmpty());

    m_program.set("other", {.name = text("Other"), .states = {AtspiState::active}});
    m_program.set("window", {.name = text("Window"), .states = {AtspiState::active}});
    EXPECT_FALSE(elementOf(application(), "AXFocusedWindow"));
}

TEST_F(AtspiTreeOfAProgram, processWithoutATree_isNull)
{
    begin();
    EXPECT_FALSE(m_tree.application(1));
    EXPECT_FALSE(m_tree.application(0));
    EXPECT_FALSE(m_tree.application(-1));
}

TEST_F(AtspiTreeOfAProgram, role_isThatOfTheTable)
{
    const QList<std::pair<quint32, const char *>> table = {
        {7, "AXCheckBox"},    {11, "AXComboBox"},  {29, "AXStaticText"},  {36, "AXPopUpButton"},
        {38, "AXTabGroup"},   {40, "AXTextField"}, {43, "AXButton"},      {44, "AXRadioButton"},
        {51, "AXSlider"},     {55, "AXTable"},     {61, "AXTextField"},   {79, "AXTextField"},
        {88, "AXLink"},       {95, "AXWebArea"},   {116, "AXStaticText"}, {129, "AXMenuButton"},
        {41, "AXPopUpButton"}};
    for (const auto &[role, name] : table)
        EXPECT_EQ(roleOf({.role = role}), text(name)) << role;
    EXPECT_EQ(roleOf({.role = 0}), QString());
    EXPECT_EQ(roleOf({.role = 4'000'000'000}), QString());
}

TEST_F(AtspiTreeOfAProgram, roleThatDependsOnTraits_isToldApart)
{
    EXPECT_EQ(roleOf({.role = 61, .states = {AtspiState::multiLine}}), text("AXTextArea"));
    EXPECT_EQ(roleOf({.role = 79, .states = {AtspiState::multiLine}}), text("AXTextArea"));
    EXPECT_EQ(roleOf({.role = 79, .attributes = {{"xml-roles", "x searchbox"}}}), text("AXSearchField"));
    EXPECT_EQ(roleOf({.role = 79, .attributes = {{"text-input-type", "search"}}}), text("AXSearchField"));
    EXPECT_EQ(roleOf({.role = 79, .attributes = {{"text-input-type", "email"}}}), text("AXTextField"));
    EXPECT_EQ(roleOf({.role = 43, .attributes = {{"haspopup", "menu"}}}), text("AXMenuButton"));
}

TEST_F(AtspiTreeOfAProgram, focusedControl_tellsTitleAndDescription)
{
    m_program.set("control", {.role = 43, .name = text("Gönderen"), .description = text("Sends it")});
    m_program.answerSearch("window", {"control"});
    const auto control = focused();
    EXPECT_EQ(textOf(control, "AXTitle"), text("Gönderen"));
    EXPECT_EQ(textOf(control, "AXDescription"), text("Sends it"));
    EXPECT_EQ(textOf(control, "AXURL"), QString());
    for (const char *absent : {"AXPosition", "AXSize", "AXValue", "nonsense"})
        EXPECT_TRUE(std::holds_alternative<std::monostate>(m_tree.attribute(control, text(absent)))) << absent;
}

TEST_F(AtspiTreeOfAProgram, pageAndControlBothFocused_theControlIsTold)
{
    m_program.set("page", {.role = 95, .name = text("Page")});
    m_program.set("control", {.role = 88, .name = text("Link")});
    m_program.answerSearch("window", {"page", "control"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
    m_program.answerSearch("window", {"control", "page"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
    m_program.answerSearch("window", {"page", "page", "page", "control"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
    m_program.answerSearch("window", {"page"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Page"));
    m_program.answerSearch("window", {});
    EXPECT_FALSE(focused());
}

TEST_F(AtspiTreeOfAProgram, controlInThePageAndOneBesideItFocused_theOneBesideIsTold)
{
    m_program.set("link", {.role = 88, .name = text("Link"), .attributes = {{"tag", "a"}}});
    m_program.set("box", {.role = 43, .name = text("Box"), .attributes = {{"tag", "button"}}});
    m_program.set("tab", {.role = 43, .name = text("Close")});
    m_program.answerSearch("window", {"link", "tab"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Close"));
    m_program.answerSearch("window", {"link", "box"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
    m_program.answerSearch("window", {"tab", "link"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Close"));
}

TEST_F(AtspiTreeOfAProgram, controlInThePageAloneHasTheFocus_isBelievedUntilItSaysOtherwise)
{
    m_program.set("link", {.role = 88, .name = text("Link"), .attributes = {{"tag", "a"}}});
    m_program.set("tab", {.role = 43, .name = text("Close")});
    m_program.answerSearch("window", {"link"});
    EXPECT_EQ(searchesForFocus(), 2);
    EXPECT_EQ(searchesForFocus(), 2);
    EXPECT_EQ(searchesForFocus(), 1);
    m_program.tellFocus("link", false);
    m_program.answerSearch("window", {"link", "tab"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Close"));
}

TEST_F(AtspiTreeOfAProgram, controlOutsideAnyPageHasTheFocus_restIsNotSearched)
{
    m_program.set("control", {.role = 43, .name = text("Close")});
    m_program.answerSearch("window", {"control"});
    for (int sample = 0; sample < 3; ++sample)
        EXPECT_EQ(searchesForFocus(), 1);
}

TEST_F(AtspiTreeOfAProgram, wholePageNotSearchedInTime_pageAndItsControlAreStillToldFromThenOn)
{
    m_program.set("page", {.role = 95, .documentAttributes = {{"Title", "Huge"}}});
    m_program.set("link", {.role = 88, .name = text("Link"), .attributes = {{"tag", "a"}}});
    int searches = 0;
    m_program.answer("window", "GetMatches", [&, this]() -> GVariant * {
        return ++searches == 2 ? nullptr : m_program.references({"link"}); // the second comes to the whole page
    });
    EXPECT_TRUE(focused());
    m_program.answerSearch("window", {"link"});
    EXPECT_EQ(searchesForFocus(), 1);
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
    m_program.answerSearch("window", {"page"});
    const auto found = pages();
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(textOf(found.first(), "AXTitle"), text("Huge"));
}

TEST_F(AtspiTreeOfAProgram, pageAloneHasTheFocus_isSearchedWhollyOnceListenedTo)
{
    m_program.set("page", {.role = 95});
    m_program.answerSearch("window", {"page"});
    EXPECT_EQ(searchesForFocus(), 2);
    EXPECT_EQ(searchesForFocus(), 2); // what came before anybody listened is unknown
    EXPECT_EQ(searchesForFocus(), 1);
    EXPECT_EQ(searchesForFocus(), 1);
}

TEST_F(AtspiTreeOfAProgram, pageAloneForTwoSeconds_isSearchedAgain)
{
    showLonePage();
    m_program.answerSearch("window", {"page", "control"});
    m_now += 1'999ms;
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Page"));
    m_now += 1ms;
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
}

TEST_F(AtspiTreeOfAProgram, pageTellsThatItsFocusWent_theControlBesideItIsToldAtOnce)
{
    showLonePage();
    m_program.tellFocus("page", false);
    m_program.answerSearch("window", {"page", "control"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
}

TEST_F(AtspiTreeOfAProgram, pageTellsOfItsFocusManyTimes_isSearchedOnceForAll)
{
    showLonePage();
    for (int i = 0; i < 1'000; ++i)
        m_program.tellFocus("page", i % 2 == 1);
    EXPECT_EQ(searchesForFocus(), 2);
    EXPECT_EQ(searchesForFocus(), 1);
}

TEST_F(AtspiTreeOfAProgram, anotherObjectTellsOfItsFocus_isNotListenedTo)
{
    showLonePage();
    m_program.tellFocus("control", true);
    m_program.tellFocus("window", false);
    EXPECT_EQ(searchesForFocus(), 1);
}

TEST_F(AtspiTreeOfAProgram, samplingThatEnded_pageIsListenedToAnewWhenItGoesOn)
{
    showLonePage();
    EXPECT_TRUE(m_program.isListenedTo("page"));
    m_tree.endSampling();
    waitUntil(text("the page to be left in peace"), 10s, [&] { return !m_program.isListenedTo("page"); });
    m_tree.endSampling(); // there may be nothing to end
    EXPECT_EQ(searchesForFocus(), 2);
    EXPECT_EQ(searchesForFocus(), 2);
    EXPECT_EQ(searchesForFocus(), 1);
    EXPECT_TRUE(m_program.isListenedTo("page"));
}

TEST_F(AtspiTreeOfAProgram, controlBesideThePageHasTheFocus_isSearchedForInEverySample)
{
    showLonePage();
    m_program.tellFocus("page", false);
    m_program.answerSearch("window", {"page", "control"});
    EXPECT_EQ(searchesForFocus(), 2);
    EXPECT_EQ(searchesForFocus(), 2);
    m_program.set("other", {.role = 43, .name = text("Close")});
    m_program.answerSearch("window", {"page", "other"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Close"));
}

TEST_F(AtspiTreeOfAProgram, anotherPageHasTheFocus_isSearched)
{
    showLonePage();
    m_program.set("next", {.role = 95, .name = text("Next page")});
    m_program.answerSearch("window", {"next", "control"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
    m_program.answerSearch("window", {"page", "control"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
}

TEST_F(AtspiTreeOfAProgram, searchOfThePageUnanswered_isAskedAgain)
{
    m_program.set("page", {.role = 95, .name = text("Page")});
    m_program.set("control", {.role = 88, .name = text("Link")});
    m_program.answerSearch("window", {"page"});
    EXPECT_EQ(searchesForFocus(), 2);
    int searches = 0;
    m_program.answer("window", "GetMatches", [&, this]() -> GVariant * {
        return searches++ == 0 ? m_program.references({"page"}) : g_variant_new("(s)", "nonsense");
    });
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Page"));
    m_program.answerSearch("window", {"page", "control"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
}

TEST_F(AtspiTreeOfAProgram, webPage_tellsAddressAndTitle)
{
    m_program.set("page", {.role = 95,
                           .name = text("name"),
                           .documentAttributes = {{"URI", "https://example.com/a"}, {"Title", "Title"}}});
    m_program.answerSearch("window", {"page"});
    const auto found = pages();
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(textOf(found[0], "AXRole"), text("AXWebArea"));
    EXPECT_EQ(textOf(found[0], "AXURL"), text("https://example.com/a"));
    EXPECT_EQ(textOf(found[0], "AXTitle"), text("Title"));
}

TEST_F(AtspiTreeOfAProgram, pageThatTellsItsAddressTheOldWay_isUnderstood)
{
    m_program.set("page",
                  {.role = 95, .name = text("name"), .documentAttributes = {{"DocURL", "https://example.org"}}});
    m_program.answerSearch("window", {"page"});
    const auto found = pages();
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(textOf(found[0], "AXURL"), QString());
    EXPECT_EQ(textOf(found[0], "AXDocument"), text("https://example.org"));
    EXPECT_EQ(textOf(found[0], "AXTitle"), text("name"));
}

TEST_F(AtspiTreeOfAProgram, firstPageTellsSomething_noOtherIsSearched)
{
    m_program.set("page", {.role = 95, .documentAttributes = {{"Title", "Page"}}});
    m_program.set("advertisement", {.role = 95, .documentAttributes = {{"URI", "https://example.org"}}});
    m_program.answerSearch("window", {"page", "advertisement"});
    application();
    m_program.takeQuestions();
    EXPECT_EQ(pages().size(), 1);
    const auto questions = m_program.takeQuestions();
    EXPECT_EQ(questions.count("window.GetMatches"), 1);
    EXPECT_FALSE(questions.contains("advertisement.GetAttributes"));
}

TEST_F(AtspiTreeOfAProgram, firstPageTellsNothing_theOthersAreFound)
{
    m_program.set("empty", {.role = 95, .name = text("name")});
    m_program.set("page", {.role = 95, .documentAttributes = {{"URI", "https://example.com"}}});
    m_program.answerSearch("window", {"empty", "page"});
    const auto found = pages();
    ASSERT_EQ(found.size(), 2);
    EXPECT_EQ(textOf(found[1], "AXURL"), text("https://example.com"));
}

TEST_F(AtspiTreeOfAProgram, browsersOwnToolsBesideAPage_onlyThePageIsFound)
{
    m_program.set("tools", {.role = 95, .documentAttributes = {{"URI", "devtools://devtools/app.html"}}});
    m_program.set("page", {.role = 95, .documentAttributes = {{"URI", "https://example.com"}}});
    m_program.answerSearch("window", {"tools", "page"});
    const auto found = pages();
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(textOf(found[0], "AXURL"), text("https://example.com"));
    m_program.answerSearch("window", {"tools"});
    EXPECT_TRUE(pages().isEmpty());
}

TEST_F(AtspiTreeOfAProgram, programThatCannotSearch_isWalked)
{
    m_program.set("window", {.name = text("Window"), .states = {AtspiState::active}, .children = {"hidden", "panel"}});
    m_program.set("hidden", {.children = {"wrong"}});
    m_program.set("wrong", {.role = 88, .states = {AtspiState::focused}});
    m_program.set("panel", {.states = {AtspiState::showing}, .children = {"control"}});
    m_program.set("control", {.role = 43, .name = text("Right"), .states = {AtspiState::focused}});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Right"));
    EXPECT_FALSE(m_tree.find(application(), text("AXWebArea")));
}

TEST_F(AtspiTreeOfAProgram, cycleInTheTree_isLeft)
{
    m_program.set("window",
                  {.states = {AtspiState::active, AtspiState::showing}, .children = {"window", "window", "root"}});
    EXPECT_FALSE(focused());
    EXPECT_LT(m_program.takeQuestions().size(), 400);
}

TEST_F(AtspiTreeOfAProgram, millionChildren_onlyTheFirstAreAskedFor)
{
    m_program.answer("window", "ChildCount", [] { return g_variant_new("(v)", g_variant_new_int32(1'000'000)); });
    m_program.answer("window", "GetChildAtIndex",
                     [this] { return g_variant_new("(@(so))", m_program.reference("window")); });
    const auto window = elementOf(application(), "AXFocusedWindow");
    m_program.takeQuestions();
    EXPECT_EQ(childrenOf(window).size(), 160);
    const auto questions = m_program.takeQuestions();
    EXPECT_EQ(questions.count("window.GetChildAtIndex"), 160);
    EXPECT_EQ(questions.count("window.GetChildren"), 0);
}

TEST_F(AtspiTreeOfAProgram, manyMoreChildrenThanCounted_onlyTheFirstAreKept)
{
    m_program.answer("window", "ChildCount", [] { return g_variant_new("(v)", g_variant_new_int32(3)); });
    m_program.answer("window", "GetChildren",
                     [this] { return m_program.references(QList<QByteArray>(5'000, QByteArray("window"))); });
    m_program.answer("root", "GetChildren",
                     [this] { return m_program.references(QList<QByteArray>(5'000, QByteArray("window"))); });
    m_program.set("window", {.name = text("Window")});
    begin();
    EXPECT_TRUE(m_tree.application(::getpid()));
    m_program.answer("root", "GetChildren", [this] { return m_program.references({"window"}); });
    EXPECT_EQ(childrenOf(elementOf(application(), "AXFocusedWindow")).size(), 160);
}

TEST_F(AtspiTreeOfAProgram, answersOfWrongTypes_areAbsent)
{
    const auto nonsense = [] { return g_variant_new("(ss)", "wrong", "type"); };
    const auto boxedNonsense = [] { return g_variant_new("(v)", g_variant_new_int32(-1)); };
    m_program.set("control", {.role = 43, .name = text("Name")});
    m_program.set("page", {.role = 95});
    m_program.answerSearch("window", {"control"});
    for (const char *method : {"GetRole", "GetState", "GetAttributes"})
        m_program.answer("control", method, nonsense);
    m_program.answer("control", "Name", boxedNonsense);
    m_program.answer("control", "Description", nonsense);
    auto control = focused();
    for (const char *name : {"AXRole", "AXTitle", "AXDescription"})
        EXPECT_EQ(textOf(control, name), QString()) << name;

    m_program.answer("page", "GetAttributes", nonsense);
    m_program.answerSearch("window", {"page"});
    const auto found = pages();
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(textOf(found[0], "AXURL"), QString());

    m_program.answer("window", "ChildCount", [] { return g_variant_new("(v)", g_variant_new_string("many")); });
    EXPECT_TRUE(childrenOf(elementOf(application(), "AXFocusedWindow")).isEmpty());
    m_program.answer("window", "GetMatches", nonsense);
    EXPECT_FALSE(focused());
    EXPECT_TRUE(pages().isEmpty());
    m_program.answer("root", "GetChildren", nonsense);
    EXPECT_FALSE(application());
}

TEST_F(AtspiTreeOfAProgram, referencesThatLeadNowhere_areLeftOut)
{
    m_program.answer("window", "GetMatches", [] {
        return g_variant_new_parsed("([('', objectpath '/a'), ('no name', '/a'), ('org.freedesktop.DBus', '/a'),"
                                    " (':0.0', '/org/a11y/atspi/null')],)");
    });
    EXPECT_TRUE(pages().isEmpty());
}

TEST_F(AtspiTreeOfAProgram, endlessTexts_areCut)
{
    m_program.set("window", {.name = QString(100'000, u'a'), .states = {AtspiState::active}});
    EXPECT_EQ(windowTitle(), QString(4096, u'a'));
    // Two UTF-16 units a character, and an odd number of them in front: the cut is within one.
    m_program.set("window",
                  {.name = u'a' + QString::fromUcs4(U"\U0001F600").repeated(3'000), .states = {AtspiState::active}});
    EXPECT_EQ(windowTitle(), u'a' + QString::fromUcs4(U"\U0001F600").repeated(2'047));
}

TEST_F(AtspiTreeOfAProgram, silentProgram_isAskedOnceInASample)
{
    const auto answering = application();
    ASSERT_TRUE(answering);
    m_program.answer("root", "GetChildren", [] { return nullptr; });
    m_program.takeQuestions();
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_FALSE(application());
    EXPECT_FALSE(m_tree.application(::getpid()));
    EXPECT_FALSE(elementOf(answering, "AXFocusedWindow"));
    EXPECT_GE(elapsed.elapsed(), 250);
    EXPECT_EQ(m_program.takeQuestions(), QList<QByteArray>{"root.GetChildren"});

    m_program.answer("root", "GetChildren", [this] { return m_program.references({"window"}); });
    EXPECT_EQ(windowTitle(), text("Window"));
}

TEST_F(AtspiTreeOfAProgram, deadlinePassed_nothingIsAsked)
{
    ASSERT_TRUE(application());
    m_program.takeQuestions();
    m_tree.beginSample(QDeadlineTimer(0));
    EXPECT_FALSE(m_tree.application(::getpid()));
    EXPECT_TRUE(m_program.takeQuestions().isEmpty());
}

TEST_F(AtspiTreeOfAProgram, searchThatTookLong_isNotRepeatedForAWhile)
{
    m_program.answer("window", "GetMatches", [] { return nullptr; });
    EXPECT_TRUE(pages().isEmpty());
    EXPECT_TRUE(m_program.takeQuestions().contains("window.GetMatches"));
    EXPECT_TRUE(pages().isEmpty());
    EXPECT_FALSE(focused());
    EXPECT_FALSE(m_program.takeQuestions().contains("window.GetMatches"));
    EXPECT_EQ(windowTitle(), text("Window"));
}

TEST_F(AtspiTreeOfAProgram, sampleLikeTheOneBefore_asksTheSameAllAtOnce)
{
    m_program.set("control", {.role = 43, .name = text("Send")});
    m_program.answerSearch("window", {"control"});
    m_program.takeQuestions();
    EXPECT_EQ(textOf(focused(), "AXRole"), text("AXButton"));
    auto first = m_program.takeQuestions();
    const auto again = application();
    auto second = m_program.takeQuestions();
    std::ranges::sort(first);
    std::ranges::sort(second);
    EXPECT_EQ(first, second);
    EXPECT_EQ(textOf(elementOf(again, "AXFocusedUIElement"), "AXRole"), text("AXButton"));
    EXPECT_TRUE(m_program.takeQuestions().isEmpty());
}

TEST_F(AtspiTreeOfAProgram, anotherWindowBecomesActive_noAnswerOfTheFormerOneIsTold)
{
    m_program.set("root", {.children = {"other", "window"}});
    m_program.set("other", {.name = text("Other")});
    m_program.set("control", {.role = 43, .name = text("Send")});
    m_program.set("elsewhere", {.role = 88, .name = text("Link")});
    m_program.answerSearch("window", {"control"});
    m_program.answerSearch("other", {"elsewhere"});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Send"));
    m_program.set("other", {.name = text("Other"), .states = {AtspiState::active}});
    m_program.set("window", {.name = text("Window")});
    EXPECT_EQ(textOf(focused(), "AXTitle"), text("Link"));
    EXPECT_EQ(windowTitle(), text("Other"));
}

TEST_F(AtspiTreeOfAProgram, questionNoLongerOfUse_isNotAskedAThirdTime)
{
    m_program.set("control", {.role = 88, .name = text("Link")});
    m_program.answerSearch("window", {"control"});
    focused();
    application();
    m_program.takeQuestions();
    application();
    EXPECT_EQ(m_program.takeQuestions(), QList<QByteArray>{"root.GetChildren"});
}

TEST_F(AtspiTreeOfAProgram, programThatFellSilent_isAskedOneThingInTheNextSample)
{
    m_program.set("control", {.role = 88, .name = text("Link")});
    m_program.answerSearch("window", {"control"});
    ASSERT_TRUE(focused());
    for (const char *method : {"GetRole", "Name"})
        m_program.answer("control", method, [] { return nullptr; });
    m_program.answer("root", "GetChildren", [] { return nullptr; });
    EXPECT_FALSE(application());
    m_program.takeQuestions();
    EXPECT_FALSE(application());
    EXPECT_EQ(m_program.takeQuestions(), QList<QByteArray>{"root.GetChildren"});
}

TEST_F(AtspiTreeOfAProgram, connectionThatEnded_isReplacedWithinTheSample)
{
    auto first = std::make_unique<FakeProgram>();
    first->set("root", {.children = {"window"}});
    first->set("window", {.name = text("First"), .states = {AtspiState::active}});
    m_program.set("root", {});
    EXPECT_EQ(windowTitle(), text("First"));
    first.reset();
    FakeProgram second;
    second.set("root", {.children = {"window"}});
    second.set("window", {.name = text("Second"), .states = {AtspiState::active}});
    EXPECT_EQ(windowTitle(), text("Second"));
}

} // namespace
} // namespace ostrel
