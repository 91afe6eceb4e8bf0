#include "base/Files.h"
#include "observer/PortOwner.h"
#include "platform/devtools/DevToolsScriptRunner.h"
#include "support/FreePort.h"
#include "support/Printers.h"
#include "support/VirtualDesktop.h"

#include <QElapsedTimer>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <unistd.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

/// A real Chromium on a desktop, asked as a recording would ask it.
class ChromiumTabs : public testing::Test
{
protected:
    static QString text(const char *utf8) { return QString::fromUtf8(utf8); }

    struct Page {
        const char *file;
        const char *title;
    };
    static constexpr Page plan{.file = "plan.html", .title = "Plan"};
    static constexpr Page copy{.file = "copy.html", .title = "Plan"};
    static constexpr Page notes{.file = "notes.html", .title = "Notes"};

    ChromiumTabs()
    {
        for (const Page &page : {plan, copy, notes})
            EXPECT_TRUE(
                writeFileAtomically(m_desktop.path(text(page.file)), "<title>" + QByteArray(page.title)).has_value());
    }

    QString address(const Page &page) const { return text("file://") + m_desktop.path(text(page.file)); }
    static QString windowTitle(const Page &page) { return text(page.title) + text(" - Chromium"); }
    /// As the program itself looks at this machine.
    static DebuggingPorts ports()
    {
        return DebuggingPorts({.sockets = [](quint16 port) { return ownSockets(port, ::geteuid()); },
                               .folders = UserFolders::ofThisUser(),
                               .user = ::geteuid()});
    }
    /// Other tests have browsers of their own.
    auto ofOurBrowser() const
    {
        auto found = ports().all();
        found.removeIf([this](const auto &browser) { return browser.process != m_browser->pid(); });
        return found;
    }
    /// What is told when that page is in front.
    std::optional<QString> tab(const Page &page) const { return address(page) + u'\n' + text(page.title); }

    /// The switches without which a first start asks questions, and the network is looked for.
    QStringList arguments(const QStringList &further) const
    {
        return QStringList{text("--no-sandbox"),
                           text("--no-first-run"),
                           text("--disable-gpu"),
                           text("--disable-background-networking"),
                           text("--disable-component-update"),
                           text("--disable-sync"),
                           text("--password-store=basic"),
                           text("--user-data-dir=") + m_desktop.path(text("profile"))} +
               further;
    }
    VirtualDesktop::Window startBrowser(const Page &page, int port = 0)
    {
        m_browser = &m_desktop.start(text("chromium"),
                                     arguments({text("--remote-debugging-port=%1").arg(port), address(page)}));
        const auto window = m_desktop.waitForWindow(windowTitle(page));
        expectInTheEnd(page, tab(page));
        return window;
    }
    /// Opens a page in the browser that runs, in front of the others.
    void open(const Page &page, const QStringList &switches = {})
    {
        m_desktop.run(text("chromium"), arguments(switches + QStringList(address(page))));
    }

    std::optional<QString> ask(const Page &front)
    {
        const BrowserScriptRunner::Browser browser{.bundleIdentifier = text("com.google.Chrome"),
                                                   .processIdentifier = qint32(m_browser->pid()),
                                                   .windowTitle = windowTitle(front)};
        // A new one each time, that leaves nobody alone because the machine was too busy for a quarter of a second.
        DevToolsScriptRunner runner(ports());
        QElapsedTimer elapsed;
        elapsed.start();
        auto answer = runner.run(browser, {}, QDeadlineTimer(10s));
        m_duration = std::chrono::milliseconds(elapsed.elapsed());
        return answer;
    }
    /// Asks until the answer is this one: windows come to the front in their own time.
    void expectInTheEnd(const Page &front, const std::optional<QString> &expected)
    {
        waitUntil(text("the answer \"%1\"").arg(expected.value_or(text("(none)"))), 10s,
                  [&] { return ask(front) == expected; });
    }
    QString note() const { return m_desktop.path(text("profile/DevToolsActivePort")); }

    VirtualDesktop m_desktop{{.size = {1200, 800}, .windowManager = true}};
    TestProcess *m_browser = nullptr;
    std::chrono::milliseconds m_duration{};
};

TEST_F(ChromiumTabs, tabsOfOneWindow_areToldApartByTitleAndByWhichShows)
{
    startBrowser(plan);
    open(notes);
    expectInTheEnd(notes, tab(notes));
    open(copy);
    expectInTheEnd(copy, tab(copy)); // the plan has the same title, and does not show any more
    EXPECT_EQ(ask({.file = "", .title = "Save file"}), std::nullopt) << "a dialog is no tab";
}

TEST_F(ChromiumTabs, windowsOfOneTitle_areToldApartByTheKeyboard)
{
    const auto first = startBrowser(plan, freePort());
    EXPECT_FALSE(QFile::exists(note())) << "the port stands on the command line alone";
    open(copy, {text("--new-window")});
    expectInTheEnd(copy, tab(copy));
    m_desktop.activate(first);
    expectInTheEnd(plan, tab(plan));
}

TEST_F(ChromiumTabs, privateWindow_isNotTold)
{
    startBrowser(plan);
    open(notes, {text("--incognito")});
    m_desktop.waitForWindow(windowTitle(notes));
    // The page is listed a moment later than its window. Only then does the answer mean something.
    open(copy, {text("--incognito")});
    expectInTheEnd(plan, std::nullopt);
    EXPECT_EQ(ask(notes), std::nullopt);
}

TEST_F(ChromiumTabs, browserThatHangs_costsABoundedTime)
{
    startBrowser(plan);
    m_browser->freeze();
    EXPECT_EQ(ask(plan), std::nullopt);
    EXPECT_GE(m_duration, 245ms);
    EXPECT_LT(m_duration, 2s);
    m_browser->thaw();
    expectInTheEnd(plan, tab(plan));
}

TEST_F(ChromiumTabs, browserKilled_leavesANoteThatLeadsNobodyAstray)
{
    startBrowser(plan);
    const auto running = ofOurBrowser();
    ASSERT_EQ(running.size(), 1);
    const quint16 port = notedPort(m_desktop.path(text("profile"))).value();
    EXPECT_EQ(running[0].port, port);

    const qint64 pid = m_browser->pid();
    m_browser->kill();
    EXPECT_TRUE(QFile::exists(note()));
    EXPECT_EQ(ofOurBrowser().size(), 0);
    QTcpServer successor;
    ASSERT_TRUE(successor.listen(QHostAddress::LocalHost, port));
    DevToolsScriptRunner runner(ports());
    EXPECT_EQ(runner.run({.bundleIdentifier = text("com.google.Chrome"),
                          .processIdentifier = qint32(pid),
                          .windowTitle = windowTitle(plan)},
                         {}, QDeadlineTimer(1s)),
              std::nullopt);
    EXPECT_FALSE(successor.waitForNewConnection(0));
}

} // namespace
} // namespace ostrel
