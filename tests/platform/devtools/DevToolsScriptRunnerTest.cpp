#include "RunnerFixture.h"

#include "support/Printers.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

class DevToolsScriptRunnerTest : public RunnerFixture
{
protected:
    void open(std::initializer_list<FakeBrowser::Page> pages) { m_browser.pages = pages; }

    const QString m_plan = text("Plan - Chromium");
    const std::optional<QString> m_first = text("https://example.org/A\nPlan");
    const std::optional<QString> m_second = text("https://example.org/B\nPlan");
};

TEST_F(DevToolsScriptRunnerTest, windowTitle_givesItsTabAndNoPageIsAsked)
{
    open({{.id = text("B"), .title = text("Other")}, {.id = text("A"), .title = text("Plan")}});
    EXPECT_EQ(ask(m_plan), m_first);
    EXPECT_EQ(m_browser.questions(), (QStringList{text("Target.getBrowserContexts"), text("Target.getTargets")}));
}

TEST_F(DevToolsScriptRunnerTest, twoTabsOfOneTitle_giveTheOneWithTheKeyboard)
{
    open({{.id = text("A"), .title = text("Plan"), .state = text("visible false")},
          {.id = text("B"), .title = text("Plan"), .state = text("visible true")},
          {.id = text("C"), .title = text("Other"), .state = {}}});
    EXPECT_EQ(ask(m_plan), m_second);
    EXPECT_EQ(m_browser.pagesAsked(), 2) << "the others are nobody's business";
}

TEST_F(DevToolsScriptRunnerTest, keyboardInTheAddressBar_givesTheOneThatShows)
{
    open({{.id = text("A"), .title = text("Plan"), .state = text("visible false")},
          {.id = text("B"), .title = text("Plan"), .state = text("hidden false")}});
    EXPECT_EQ(ask(m_plan), m_first);
}

TEST_F(DevToolsScriptRunnerTest, twoWindowsOfOneTitleWithoutTheKeyboard_giveNothing)
{
    open({{.id = text("A"), .title = text("Plan")}, {.id = text("B"), .title = text("Plan")}});
    EXPECT_EQ(ask(m_plan), std::nullopt);
}

TEST_F(DevToolsScriptRunnerTest, titleOfNoTab_givesNothing)
{
    open({{.id = text("A"), .title = text("Plan"), .state = text("visible true")}});
    EXPECT_EQ(ask(text("Save as")), std::nullopt);
    EXPECT_EQ(m_browser.pagesAsked(), 0);
}

TEST_F(DevToolsScriptRunnerTest, windowWithoutKnownTitle_isFoundByItsPage)
{
    open({{.id = text("A"), .title = text("Plan"), .state = text("hidden false")},
          {.id = text("B"), .title = text("Plan"), .state = text("visible true")}});
    EXPECT_EQ(ask(std::nullopt), m_second);
}

TEST_F(DevToolsScriptRunnerTest, browserWithoutPages_givesAnEmptyText)
{
    EXPECT_EQ(ask(m_plan), QString());
}

TEST_F(DevToolsScriptRunnerTest, privateTab_givesNothing)
{
    open({{.id = text("A"), .title = text("Plan"), .profile = text("private")}});
    EXPECT_EQ(ask(m_plan), std::nullopt);
}

TEST_F(DevToolsScriptRunnerTest, privateTabInFrontOfOneOfTheSameTitle_givesNothing)
{
    open({{.id = text("A"), .title = text("Plan"), .state = text("visible false")},
          {.id = text("B"), .title = text("Plan"), .state = text("visible true"), .profile = text("private")}});
    EXPECT_EQ(ask(m_plan), std::nullopt);
}

TEST_F(DevToolsScriptRunnerTest, browserThatDoesNotTellProfilesApart_isBelieved)
{
    m_browser.ownProfile = QJsonValue::Undefined;
    open({{.id = text("A"), .title = text("Plan"), .profile = text("some")}});
    EXPECT_EQ(ask(m_plan), m_first);
}

TEST_F(DevToolsScriptRunnerTest, manyTabsOfOneTitle_areNotAsked)
{
    for (int i = 0; i < 9; ++i)
        m_browser.pages.append({.id = QString::number(i), .title = text("Plan"), .state = text("visible true")});
    EXPECT_EQ(ask(m_plan), std::nullopt);
    EXPECT_EQ(m_browser.pagesAsked(), 0);
}

TEST_F(DevToolsScriptRunnerTest, thousandTabs_areReadInTime)
{
    for (int i = 0; i < 1000; ++i)
        m_browser.pages.append({.id = QString::number(i), .title = text("Tab %1").arg(i)});
    m_browser.pages.append({.id = text("A"), .title = text("Plan")});
    EXPECT_EQ(ask(m_plan), m_first);
}

TEST_F(DevToolsScriptRunnerTest, titlesWithEveryCharacter_comeThrough)
{
    open({{.id = text("A"), .title = text("\"Pl\u00e4n\" & <b> \U0001f600 \\ %1")}});
    EXPECT_EQ(ask(text("\"Pl\u00e4n\" & <b> \U0001f600 \\ %1 - Chromium")),
              text("https://example.org/A\n\"Pl\u00e4n\" & <b> \U0001f600 \\ %1"));
}

TEST_F(DevToolsScriptRunnerTest, portThatIsNotTheBrowsers_isNotEvenConnectedTo)
{
    m_machine.listeners[m_browser.port()] = {4711};
    EXPECT_EQ(ask(m_plan), std::nullopt);
    EXPECT_EQ(m_browser.connectionCount(), 0);
}

TEST_F(DevToolsScriptRunnerTest, portTakenOverJustBeforeTheConnection_getsNotAByte)
{
    m_machine.looksUntilTakenOver = 1;
    EXPECT_EQ(ask(m_plan), std::nullopt);
    EXPECT_TRUE(m_browser.requests().isEmpty());
}

TEST_F(DevToolsScriptRunnerTest, portTakenOverBetweenTheConnections_getsNoUpgrade)
{
    m_machine.looksUntilTakenOver = 2;
    EXPECT_EQ(ask(m_plan), std::nullopt);
    EXPECT_EQ(m_browser.requests().size(), 1);
}

TEST_F(DevToolsScriptRunnerTest, browserThatEndedMeanwhile_givesNothingAtOnce)
{
    m_machine.listeners[1] = {FakeProcesses::browserSocket};
    m_machine.note(m_machine.path(text("home/.config/chromium")), 1);
    EXPECT_EQ(ask(m_plan), std::nullopt);
    EXPECT_LT(m_duration, 250ms);
}

TEST_F(DevToolsScriptRunnerTest, hungBrowser_costsAQuarterOfASecondAndIsLeftAloneForFive)
{
    open({{.id = text("A"), .title = text("Plan")}});
    m_browser.version = [](const auto &, QTcpSocket &) {};
    EXPECT_EQ(ask(m_plan), std::nullopt);
    EXPECT_GE(m_duration, 245ms);
    EXPECT_LT(m_duration, 1s);
    const int connections = m_browser.connectionCount();

    m_browser.version.reset();
    m_now += 4999ms;
    EXPECT_EQ(ask(m_plan), std::nullopt);
    EXPECT_EQ(m_browser.connectionCount(), connections);
    m_now += 1ms;
    EXPECT_EQ(ask(m_plan), m_first);
}

TEST_F(DevToolsScriptRunnerTest, hungPage_givesNothingRatherThanAnotherTab)
{
    open({{.id = text("A"), .title = text("Plan"), .state = {}},
          {.id = text("B"), .title = text("Plan"), .state = text("visible true")}});
    EXPECT_EQ(ask(m_plan), std::nullopt);
    EXPECT_LT(m_duration, 1s);
}

TEST_F(DevToolsScriptRunnerTest, deadlineOfTheSample_isKept)
{
    m_browser.version = [](const auto &, QTcpSocket &) {};
    EXPECT_EQ(ask(m_plan, 60ms), std::nullopt);
    EXPECT_GE(m_duration, 55ms);
    EXPECT_LT(m_duration, 245ms);
}

TEST_F(DevToolsScriptRunnerTest, deadlineThatHasPassed_isNotTheBrowsersFault)
{
    open({{.id = text("A"), .title = text("Plan")}});
    EXPECT_EQ(ask(m_plan, 0ms), std::nullopt);
    EXPECT_EQ(m_browser.connectionCount(), 0);
    EXPECT_EQ(ask(m_plan), m_first) << "it is not left alone for that";
}

} // namespace
} // namespace ostrel
