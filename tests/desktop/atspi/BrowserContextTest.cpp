#include "context/ActiveApplicationContext.h"
#include "platform/atspi/AtspiAccess.h"
#include "platform/atspi/AtspiTree.h"
#include "platform/desktopentry/DesktopEntries.h"
#include "platform/x11/foreground/X11ForegroundSource.h"
#include "support/FakeBrowserScriptRunner.h"
#include "support/Printers.h"
#include "support/VirtualDesktop.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// Everything in it that can have the focus stands in one row: the Tab key leads from one to the next.
const QByteArray page =
    R"(<!DOCTYPE html><html><head><meta charset="utf-8"><title>Quarterly   figures</title></head><body>
<a href="#there">Details</a>
<input type="search" aria-label="Find a figure">
<input type="password" aria-label="Secret word">
<textarea aria-label="Remarks"></textarea>
<button>Send</button>
<iframe srcdoc="<title>Advertisement</title><a href='https://advertisement.example/'>Buy</a>"></iframe>
</body></html>)";

/// One browser for all tests, for it is slow to start. It has the front window of a desktop with accessibility on.
class BrowserContext : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_desktop = std::make_unique<VirtualDesktop>(VirtualDesktop::Options{.windowManager = true});
        s_desktop->startAccessibility();
        s_desktop->enter();
        s_tree = std::make_unique<AtspiTree>();
        AtspiAccess access;
        ASSERT_TRUE(access.request());
        write(text("figures.html"), page);
        write(text("plain.html"), "<title>Plain page</title><a href='#'>A link</a>");
        s_browser = &startBrowser(text("forced"),
                                  {text("--force-renderer-accessibility"),
                                   text("--host-resolver-rules=MAP www.figures.example 127.0.0.1"),
                                   QStringLiteral("http://www.figures.example:%1/figures.html").arg(servePages())});
        s_window = s_desktop->waitForWindow(text("Quarterly figures - Chromium"));
    }
    static void TearDownTestSuite()
    {
        s_browser = nullptr;
        s_tree.reset();
        s_desktop.reset();
    }

    static void write(const QString &name, const QByteArray &contents)
    {
        QFile file(s_desktop->path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(contents);
    }
    /// @return the port
    static QString servePages()
    {
        TestProcess &server =
            s_desktop->start(text("python3"), {text("-u"), text("-m"), text("http.server"), text("--bind"),
                                               text("127.0.0.1"), text("--directory"), s_desktop->path({}), text("0")});
        static const QRegularExpression port(text(" port (\\d+)"));
        return port.match(QString::fromUtf8(server.readLine(10s))).captured(1);
    }
    static TestProcess &startBrowser(const QString &profile, const QStringList &arguments)
    {
        return s_desktop->start(text("chromium"),
                                QStringList{text("--no-sandbox"), text("--disable-gpu"), text("--no-first-run"),
                                            text("--disable-background-networking"), text("--disable-component-update"),
                                            text("--disable-sync"), text("--password-store=basic"),
                                            QStringLiteral("--user-data-dir=") + s_desktop->path(profile)} +
                                    arguments);
    }

    BrowserContext()
    {
        m_scripts.onRun = [](const auto &, const QString &, QDeadlineTimer) { return std::nullopt; };
        s_desktop->activate(s_window);
    }

    QString contextText() { return m_context.currentRecordingContext({}).appContextText.value_or(QString()); }
    void waitForText(const QString &expected)
    {
        QString last;
        try {
            waitUntil(text("the context"), 20s, [&] { return (last = contextText()) == expected; });
        } catch (const std::runtime_error &error) {
            ADD_FAILURE() << error.what() << "\n" << qPrintable(last) << "\ninstead of\n" << qPrintable(expected);
        }
    }
    void press(const char *key) { s_desktop->run(text("xdotool"), {text("key"), text(key)}); }

    static std::unique_ptr<VirtualDesktop> s_desktop;
    static TestProcess *s_browser;
    /// One for all: a browser may end when a listener leaves the accessibility bus and another one comes at once.
    static std::unique_ptr<AtspiTree> s_tree;
    static VirtualDesktop::Window s_window;
    DesktopEntries m_entries{DesktopEntries::sessionFolders()};
    X11ForegroundSource m_foreground{{}, [this](const QString &name) { return m_entries.applicationFor(name); }};
    AtspiAccess m_access;
    FakeBrowserScriptRunner m_scripts; // knows nothing: whatever is told comes from the tree
    ActiveApplicationContext m_context{{.foreground = m_foreground,
                                        .accessibility = m_access,
                                        .tree = *s_tree,
                                        .browserScripts = m_scripts,
                                        .excludesWindow = [](const WindowIdentity &) { return false; }}};
    const QString m_head = text("Active context:\n- App: Chromium Web Browser\n");
    const QString m_window = text("- Window: Quarterly figures - Chromium");
    const QString m_pageAndWindow =
        text("- Website: figures.example\n- Page: Quarterly figures\n") + m_window + text("\n- Focus: ");
};
std::unique_ptr<VirtualDesktop> BrowserContext::s_desktop;
TestProcess *BrowserContext::s_browser = nullptr;
std::unique_ptr<AtspiTree> BrowserContext::s_tree;
VirtualDesktop::Window BrowserContext::s_window = 0;

TEST_F(BrowserContext, tabStripFocusedBesideThePage_isToldInsteadOfThePage)
{
    const QString before = m_head + m_pageAndWindow;
    const QString pageAlone = before + text("Quarterly figures web page");
    for (int sample = 0; sample < 4; ++sample)
        waitForText(pageAlone);
    press("F6");
    waitForText(before + text("search field"));
    press("F6"); // the tab; what it is called besides the page's title is the browser's matter
    press("F6");
    waitForText(before + text("Close button"));
    press("F6");
    waitForText(pageAlone);
}

TEST_F(BrowserContext, tabStripFocusedWhileALinkWas_isToldInsteadOfTheLink)
{
    const QString before = m_head + m_pageAndWindow;
    waitForText(before + text("Quarterly figures web page"));
    press("Tab");
    for (int sample = 0; sample < 4; ++sample)
        waitForText(before + text("Details link"));
    for (int i = 0; i < 3; ++i)
        press("F6"); // the address bar, the tab, its button
    waitForText(before + text("Close button"));
    press("F6");
    waitForText(before + text("Details link"));
    press("F5"); // gives the page itself the focus, as it was
    waitForText(before + text("Quarterly figures web page"));
}

TEST_F(BrowserContext, focusMovingThroughThePage_isFollowed)
{
    const QString before = m_head + m_pageAndWindow;
    waitForText(before + text("Quarterly figures web page"));
    for (const char *focus : {"Details link", "Find a figure search field", "text field", "text area", "Send button"}) {
        press("Tab");
        waitForText(before + text(focus));
    }
    press("ctrl+l");
    waitForText(before + text("search field")); // "Address and search bar"
}

TEST_F(BrowserContext, anotherApplicationInFront_nothingOfThePageIsTold)
{
    s_desktop->activate(s_desktop->startTerminal(text("Shell")));
    waitForText(text("Active context:\n- App: XTerm\n- Window: Shell"));
}

TEST_F(BrowserContext, browserThatHangs_onlyTheWindowSystemTells)
{
    waitUntil(text("the page"), 20s, [this] { return contextText().contains(text("- Page:")); });
    s_browser->freeze();
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_EQ(contextText(), m_head + m_window);
    EXPECT_LT(elapsed.elapsed(), 2'000);
    s_browser->thaw();
    waitUntil(text("the page"), 20s, [this] { return contextText().contains(text("- Page:")); });
}

TEST_F(BrowserContext, browserThatShowsNoTree_onlyItsWindowIsTold)
{
    startBrowser(text("plain"), {QStringLiteral("file://") + s_desktop->path(text("plain.html"))});
    s_desktop->activate(s_desktop->waitForWindow(text("Plain page - Chromium")));
    waitForText(m_head + text("- Window: Plain page - Chromium"));
}

} // namespace
} // namespace ostrel
