#include "context/ActiveApplicationContext.h"
#include "support/FakeAccessibilityAccess.h"
#include "support/FakeAccessibilityTree.h"
#include "support/FakeBrowserScriptRunner.h"
#include "support/FakeForegroundSource.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

std::optional<QString> text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// One sample over sources that fail on every question that the test does not expect.
class RecordingContextTest : public testing::Test
{
protected:
    RecordingContextTest()
    {
        setApplication(m_browser);
        setTrusted(true);
        setMouse(std::nullopt);
    }

    void setApplication(std::optional<ForegroundApplication> application)
    {
        m_foreground.onFrontmostApplication = [application] { return application; };
    }
    void setWindow(std::optional<FocusedWindow> window)
    {
        m_foreground.onFocusedWindow = [window] { return window; };
    }
    void setTitle(const char *title) { setWindow(FocusedWindow{.title = text(title), .frame = {}}); }
    void setMouse(std::optional<QPointF> location)
    {
        m_foreground.onMouseLocation = [location] { return location; };
    }
    void setTrusted(bool trusted)
    {
        m_access.onIsTrusted = [trusted] { return trusted; };
    }
    /// The accessibility tree shows this window, and no focused control.
    void setTreeWindow(FakeAccessibilityTree::Attributes attributes)
    {
        const auto application = m_tree.add({{*text("AXFocusedWindow"), m_tree.add(attributes)}});
        m_tree.onApplication = [application](qint32 pid) { return pid == 42 ? application : nullptr; };
        m_tree.onSystemWide = [] { return nullptr; };
    }
    void setNoTree()
    {
        m_tree.onApplication = [](qint32) { return nullptr; };
        m_tree.onSystemWide = [] { return nullptr; };
    }
    void setTab(std::optional<QString> answer)
    {
        m_browserScripts.onRun = [answer](const auto &, const QString &, QDeadlineTimer) { return answer; };
    }
    void exclude(std::function<bool(const WindowIdentity &)> rule) { m_rule = std::move(rule); }
    ActiveRecordingContext sample() { return m_context.currentRecordingContext(m_displays); }
    std::optional<QString> sampleText() { return sample().appContextText; }

    static ActiveDisplaySelection selected(const char *id, const char *reason)
    {
        return {.displayId = QString::fromUtf8(id),
                .displayLabel = QString::fromUtf8(id),
                .reason = QString::fromUtf8(reason)};
    }

    const ForegroundApplication m_browser = {.localizedName = text("Chromium"),
                                             .bundleIdentifier = text("com.google.Chrome"),
                                             .processIdentifier = 42,
                                             .windowClass = QStringLiteral("chromium Chromium")};
    const ForegroundApplication m_editor = {.localizedName = text("Editor"),
                                            .bundleIdentifier = text("org.example.Editor"),
                                            .processIdentifier = 42,
                                            .windowClass = QStringLiteral("editor Editor")};
    FakeForegroundSource m_foreground;
    FakeAccessibilityAccess m_access;
    FakeAccessibilityTree m_tree;
    FakeBrowserScriptRunner m_browserScripts;
    std::function<bool(const WindowIdentity &)> m_rule = [](const WindowIdentity &) { return false; };
    ActiveApplicationContext m_context{{.foreground = m_foreground,
                                        .accessibility = m_access,
                                        .tree = m_tree,
                                        .browserScripts = m_browserScripts,
                                        .excludesWindow = [this](const WindowIdentity &w) { return m_rule(w); },
                                        .ownProcess = 7}};
    QList<ActiveDisplayCandidate> m_displays = {
        {.displayId = QStringLiteral("1"), .displayLabel = QStringLiteral("1"), .bounds = {0, 0, 100, 100}},
        {.displayId = QStringLiteral("2"), .displayLabel = QStringLiteral("2"), .bounds = {100, 0, 100, 100}}};
};

TEST_F(RecordingContextTest, notTrusted_isTheNameAloneAndTheMouseEvenForABrowser)
{
    setTrusted(false);
    setMouse(QPointF(50, 50));
    // Neither window nor tree nor browser has an answer: asking one of them would fail this test.
    EXPECT_EQ(sample(),
              (ActiveRecordingContext{.appContextText = text("Chromium"), .activeDisplay = selected("1", "mouse")}));
}

TEST_F(RecordingContextTest, trusted_hasTitleAndWindowsDisplay)
{
    setApplication(m_editor);
    setMouse(QPointF(50, 50));
    setWindow(FocusedWindow{.title = text(" A \t title "), .frame = QRectF(110, 10, 50, 50)});
    setNoTree();
    EXPECT_EQ(sample(),
              (ActiveRecordingContext{.appContextText = text("Active context:\n- App: Editor\n- Window: A title"),
                                      .activeDisplay = selected("2", "focusedWindow")}));
}

TEST_F(RecordingContextTest, windowThatDecides_leavesNobodyAskedForTheMouse)
{
    setApplication(m_editor);
    m_foreground.onMouseLocation = nullptr; // to be asked would fail this test
    setWindow(FocusedWindow{.title = {}, .frame = QRectF(110, 10, 50, 50)});
    setNoTree();
    EXPECT_EQ(sample().activeDisplay, selected("2", "focusedWindow"));
}

TEST_F(RecordingContextTest, trustedWithoutWindow_isTheNameAloneAndTheMouse)
{
    setApplication(m_editor);
    setMouse(QPointF(150, 50));
    setWindow(std::nullopt);
    setNoTree();
    EXPECT_EQ(sample(),
              (ActiveRecordingContext{.appContextText = text("Editor"), .activeDisplay = selected("2", "mouse")}));
}

TEST_F(RecordingContextTest, noApplication_hasNoTextAndStillADisplay)
{
    setApplication(std::nullopt);
    setMouse(QPointF(150, 50));
    EXPECT_EQ(sample(),
              (ActiveRecordingContext{.appContextText = std::nullopt, .activeDisplay = selected("2", "mouse")}));
}

TEST_F(RecordingContextTest, applicationWithoutName_hasNoTextAndStillADisplay)
{
    setApplication(ForegroundApplication());
    setWindow(FocusedWindow{.title = text("A"), .frame = QRectF(0, 0, 10, 10)});
    EXPECT_EQ(sample(), (ActiveRecordingContext{.appContextText = std::nullopt,
                                                .activeDisplay = selected("1", "focusedWindow")}));
}

TEST_F(RecordingContextTest, noMouseAndNoWindow_hasNoDisplay)
{
    setTrusted(false);
    EXPECT_EQ(sample().activeDisplay, std::nullopt);
}

TEST_F(RecordingContextTest, everySource_addsItsFact)
{
    setTitle("Window");
    const auto window = m_tree.add({{*text("AXTitle"), *text("Window of the tree")}});
    const auto focused = m_tree.add({{*text("AXRole"), *text("AXButton")}, {*text("AXTitle"), *text("OK")}});
    m_tree.onApplication = [&](qint32) {
        return m_tree.add({{*text("AXFocusedWindow"), window}, {*text("AXFocusedUIElement"), focused}});
    };
    setTab(text("https://www.example.com/a\nPage"));
    EXPECT_EQ(sampleText(), text("Active context:\n- App: Chromium\n- Website: example.com\n- Page: Page\n"
                                 "- Window: Window of the tree\n- Focus: OK button"));
}

TEST_F(RecordingContextTest, treeWithoutWindowTitle_hasThatOfTheWindowSystem)
{
    setApplication(m_editor);
    setTitle("Window");
    setTreeWindow({});
    EXPECT_EQ(sampleText(), text("Active context:\n- App: Editor\n- Window: Window"));
}

TEST_F(RecordingContextTest, factsOfTheTree_winOverTheBrowsers)
{
    setTitle("Window");
    setTab(text("https://tab.example/\nTab"));
    setTreeWindow({{*text("AXDocument"), *text("https://tree.example/")}});
    EXPECT_EQ(sampleText(),
              text("Active context:\n- App: Chromium\n- Website: tree.example\n- Page: Tab\n- Window: Window"));
    setTreeWindow({{*text("AXRole"), *text("AXWebArea")}, {*text("AXTitle"), *text("Tree")}});
    EXPECT_EQ(sampleText(), text("Active context:\n- App: Chromium\n- Website: tab.example\n- Page: Tree"));
}

TEST_F(RecordingContextTest, treeThatTellsSiteAndPage_leavesTheBrowserAlone)
{
    setTitle("Window");
    setTreeWindow({{*text("AXRole"), *text("AXWebArea")},
                   {*text("AXTitle"), *text("Page")},
                   {*text("AXURL"), QUrl(*text("https://example.com"))}});
    // The browser has no answer: asking it would fail this test.
    EXPECT_EQ(sampleText(), text("Active context:\n- App: Chromium\n- Website: example.com\n- Page: Page"));
}

TEST_F(RecordingContextTest, browserWithoutWindows_contributesNothing)
{
    setTitle("Window");
    setNoTree();
    setTab(text(""));
    EXPECT_EQ(sampleText(), text("Active context:\n- App: Chromium\n- Window: Window"));
}

TEST_F(RecordingContextTest, browserThatCannotBeAsked_costsNoOtherFact)
{
    setTitle("Window");
    setNoTree();
    setTab(std::nullopt);
    EXPECT_EQ(sampleText(), text("Active context:\n- App: Chromium\n- Window: Window"));
}

TEST_F(RecordingContextTest, otherApplications_areNotAskedForATab)
{
    setApplication(m_editor);
    setTitle("Window");
    setNoTree();
    EXPECT_EQ(sampleText(), text("Active context:\n- App: Editor\n- Window: Window"));
}

TEST_F(RecordingContextTest, applicationWithoutPid_isNotLookedForInTheTree)
{
    auto application = m_editor;
    application.processIdentifier = 0;
    setApplication(application);
    setTitle("Window");
    EXPECT_EQ(sampleText(), text("Active context:\n- App: Editor\n- Window: Window"));
    EXPECT_TRUE(m_tree.samples().isEmpty());
}

TEST_F(RecordingContextTest, frameOfTheWindowSystem_winsOverTheTrees)
{
    setApplication(m_editor);
    setTreeWindow({{*text("AXPosition"), QPointF(0, 0)}, {*text("AXSize"), QSizeF(50, 50)}});
    setWindow(FocusedWindow{.title = {}, .frame = QRectF(110, 10, 50, 50)});
    EXPECT_EQ(sample().activeDisplay, selected("2", "focusedWindow"));
    setWindow(FocusedWindow{.title = text("A"), .frame = {}});
    EXPECT_EQ(sample().activeDisplay, selected("1", "focusedWindow"));
}

TEST_F(RecordingContextTest, oneDeadlineOfFourHundredMilliseconds_isHandedToTreeAndBrowser)
{
    setTitle("Window");
    setNoTree();
    QList<QDeadlineTimer> deadlines;
    m_browserScripts.onRun = [&](const auto &, const QString &, QDeadlineTimer deadline) {
        deadlines.append(deadline);
        return std::nullopt;
    };
    const QDeadlineTimer atLeast(400);
    sample();
    const QDeadlineTimer atMost(400);
    ASSERT_EQ(m_tree.samples().size(), 1);
    EXPECT_GE(m_tree.samples().first(), atLeast);
    EXPECT_LE(m_tree.samples().first(), atMost);
    EXPECT_EQ(deadlines, m_tree.samples());
    sample();
    EXPECT_EQ(m_tree.samples().size(), 2);
}

TEST_F(RecordingContextTest, browser_isRecognisedByTheWindowSystemsTitle)
{
    setTitle("Page - Chromium");
    setTreeWindow({{*text("AXTitle"), *text("Another")}});
    m_browserScripts.onRun = [](const BrowserScriptRunner::Browser &browser, const QString &, QDeadlineTimer) {
        EXPECT_EQ(browser.windowTitle, text("Page - Chromium"));
        EXPECT_EQ(browser.processIdentifier, 42);
        return std::nullopt;
    };
    sample();
}

TEST_F(RecordingContextTest, excludedWindow_isTheApplicationsNameAndNothingElseIsAsked)
{
    setWindow(FocusedWindow{.title = text("Letter - Private Browsing"), .frame = QRectF(110, 10, 50, 50)});
    exclude([](const WindowIdentity &window) { return window.title.endsWith(QStringLiteral("Private Browsing")); });
    // Neither tree nor browser has an answer: asking one of them would fail this test.
    EXPECT_EQ(sample(), (ActiveRecordingContext{.appContextText = text("Chromium"),
                                                .activeDisplay = selected("2", "focusedWindow"),
                                                .isPrivateInFront = true}));
}

TEST_F(RecordingContextTest, excludedApplicationWithoutConsent_isStillKnownToBePrivate)
{
    m_access.onIsTrusted = [] { return false; };
    exclude([](const WindowIdentity &window) {
        EXPECT_EQ(window.title, QString()); // which may not even be asked for
        return window.windowClass == text("chromium Chromium");
    });
    EXPECT_TRUE(sample().isPrivateInFront);
    exclude([](const WindowIdentity &) { return false; });
    EXPECT_FALSE(sample().isPrivateInFront);
}

TEST_F(RecordingContextTest, rules_areAskedWithAllThatIsKnownOfTheWindow)
{
    setApplication(m_editor);
    setTitle(" Raw  title");
    exclude([](const WindowIdentity &window) {
        EXPECT_EQ(window.bundleIdentifier, text("org.example.Editor"));
        EXPECT_EQ(window.windowClass, text("editor Editor"));
        EXPECT_EQ(window.title, text(" Raw  title"));
        return true;
    });
    EXPECT_EQ(sampleText(), text("Editor"));
}

TEST_F(RecordingContextTest, excludedApplicationWithoutWindow_isItsNameAlone)
{
    setWindow(std::nullopt);
    exclude([](const WindowIdentity &window) { return window.windowClass == text("chromium Chromium"); });
    EXPECT_EQ(sampleText(), text("Chromium"));
}

TEST_F(RecordingContextTest, excludedPage_isTheApplicationsNameAlone)
{
    exclude([](const WindowIdentity &window) { return window.title == text("Secret"); });
    setTitle("Window");
    setNoTree();
    setTab(text("https://example.com\nSecret"));
    EXPECT_EQ(sampleText(), text("Chromium"));
    setTab(text("https://example.com\nOpen"));
    EXPECT_EQ(sampleText(),
              text("Active context:\n- App: Chromium\n- Website: example.com\n- Page: Open\n- Window: Window"));
}

TEST_F(RecordingContextTest, treeThatIsAlreadyTheExcludedWindows_isTheApplicationsNameAlone)
{
    exclude([](const WindowIdentity &window) { return window.title == text("Secret"); });
    setWindow(FocusedWindow{.title = text("Window"), .frame = QRectF(110, 10, 50, 50)});
    setTab(std::nullopt);
    setTreeWindow({{*text("AXTitle"), *text("Secret")}});
    EXPECT_EQ(sample(), (ActiveRecordingContext{.appContextText = text("Chromium"),
                                                .activeDisplay = selected("2", "focusedWindow"),
                                                .isPrivateInFront = true}));
}

TEST_F(RecordingContextTest, excludedSite_isTheApplicationsNameAloneAndToldAsAPage)
{
    exclude([](const WindowIdentity &window) {
        return window.pageAddress.value_or(QString()).startsWith(QStringLiteral("https://example.com/private"));
    });
    setTitle("Window");
    setNoTree();
    setTab(text("https://example.com/private/diary\nDiary"));
    const auto secret = sample();
    EXPECT_EQ(secret.appContextText, text("Chromium"));
    EXPECT_TRUE(secret.isPrivateInFront);
    EXPECT_TRUE(secret.isPrivatePageInFront);
    setTab(text("https://example.com/\nOpen"));
    EXPECT_FALSE(sample().isPrivatePageInFront);
    EXPECT_EQ(sampleText(),
              text("Active context:\n- App: Chromium\n- Website: example.com\n- Page: Open\n- Window: Window"));
}

TEST_F(RecordingContextTest, ownWindowInFront_isPrivateButNoSecret)
{
    auto ours = m_editor;
    ours.processIdentifier = 7;
    setApplication(ours);
    setTitle("Recorder");
    setNoTree();
    const auto own = sample();
    EXPECT_TRUE(own.isPrivateInFront);
    EXPECT_FALSE(own.isPrivatePageInFront);
    EXPECT_EQ(own.appContextText, text("Active context:\n- App: Editor\n- Window: Recorder"));
    setTrusted(false);
    EXPECT_TRUE(sample().isPrivateInFront);
    setApplication(m_editor);
    EXPECT_FALSE(sample().isPrivateInFront);
}

TEST_F(RecordingContextTest, processThatIsNotKnown_isNotTakenForOurs)
{
    ActiveApplicationContext context{{.foreground = m_foreground,
                                      .accessibility = m_access,
                                      .tree = m_tree,
                                      .browserScripts = m_browserScripts,
                                      .excludesWindow = m_rule}}; // of a program without windows
    auto unknown = m_editor;
    unknown.processIdentifier = 0;
    setApplication(unknown);
    setTrusted(false);
    EXPECT_FALSE(context.currentRecordingContext(m_displays).isPrivateInFront);
}

TEST_F(RecordingContextTest, titlesOfAnyLength_areBoundedInTheText)
{
    const QString huge(100'000, u'x');
    setTitle("");
    setTreeWindow({{*text("AXRole"), *text("AXWebArea")},
                   {*text("AXTitle"), huge},
                   {*text("AXURL"), QString(QStringLiteral("https://example.com/") + huge)}});
    const auto shown = sampleText();
    ASSERT_TRUE(shown);
    EXPECT_TRUE(shown->contains(QStringLiteral("- Website: example.com\n")));
    EXPECT_LT(shown->size(), 1100);
}

} // namespace
} // namespace ostrel
