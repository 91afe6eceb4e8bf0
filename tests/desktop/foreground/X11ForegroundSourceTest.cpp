#include "platform/x11/foreground/X11ForegroundSource.h"
#include "platform/desktopentry/DesktopEntries.h"
#include "platform/x11/base/X11Connection.h"
#include "support/Printers.h"
#include "support/VirtualDesktop.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

class X11ForegroundSourceTest : public testing::Test
{
protected:
    /// Asks as a sample does: the application first, then its window.
    std::optional<FocusedWindow> sampleWindow()
    {
        m_source.frontmostApplication();
        return m_source.focusedWindow();
    }
    QString sampleTitle()
    {
        const auto window = sampleWindow();
        return window ? window->title.value_or(QString()) : QString();
    }
    void setProperty(VirtualDesktop::Window window, const char *name, const char *format, const char *value)
    {
        m_desktop.run(text("xprop"), {text("-id"), QString::number(window), text("-f"), text(name), text(format),
                                      text("-set"), text(name), text(value)});
    }

    VirtualDesktop m_desktop{{.windowManager = true, .sessionBus = false}};
    DesktopEntries m_entries{DesktopEntries::sessionFolders()};
    X11ForegroundSource m_source{m_desktop.display(),
                                 [this](const QString &windowClass) { return m_entries.applicationFor(windowClass); }};
};

TEST_F(X11ForegroundSourceTest, terminal_hasNameTitlePidAndFrame)
{
    const auto window = m_desktop.startTerminal(text("A shell"), text("60x10+200+150"));
    m_desktop.activate(window);
    const auto application = m_source.frontmostApplication();
    ASSERT_TRUE(application);
    EXPECT_EQ(application->localizedName, text("XTerm"));
    EXPECT_EQ(application->bundleIdentifier, text("debian-xterm"));
    EXPECT_GT(application->processIdentifier, 0);
    EXPECT_EQ(application->windowClass, text("xterm XTerm"));
    const auto focused = m_source.focusedWindow();
    ASSERT_TRUE(focused);
    EXPECT_EQ(focused->title, text("A shell"));
    ASSERT_TRUE(focused->frame);
    // The place was asked for, so the decorated window begins exactly there; its title bar is above the content.
    EXPECT_EQ(focused->frame->topLeft(), QPointF(200, 150));
    const QByteArray content =
        m_desktop.run(text("xdotool"), {text("getwindowgeometry"), text("--shell"), QString::number(window)});
    const int contentHeight = content.mid(content.indexOf("HEIGHT=") + 7).trimmed().split('\n').first().toInt();
    EXPECT_GT(contentHeight, 50);
    EXPECT_GT(focused->frame->height(), contentHeight + 10);
}

TEST_F(X11ForegroundSourceTest, editor_isFoundByItsDesktopEntry)
{
    m_desktop.activate(m_desktop.startEditor(text("notes.txt")));
    const auto application = m_source.frontmostApplication();
    ASSERT_TRUE(application);
    EXPECT_EQ(application->localizedName, text("Mousepad"));
    EXPECT_EQ(application->bundleIdentifier, text("org.xfce.mousepad"));
    EXPECT_TRUE(m_source.focusedWindow()->title->endsWith(text("notes.txt - Mousepad")));
}

TEST_F(X11ForegroundSourceTest, otherWindowActivated_isTold)
{
    const auto one = m_desktop.startTerminal(text("one"));
    const auto two = m_desktop.startTerminal(text("two"));
    m_desktop.activate(one);
    EXPECT_EQ(sampleTitle(), text("one"));
    m_desktop.activate(two);
    EXPECT_EQ(sampleTitle(), text("two"));
}

TEST_F(X11ForegroundSourceTest, otherApplicationActivated_ownerIsThatOfTheNewWindow)
{
    const auto terminal = m_desktop.startTerminal(text("one"));
    const auto editor = m_desktop.startEditor(text("notes.txt"));
    for (int round = 0; round < 2; ++round) {
        m_desktop.activate(terminal);
        EXPECT_EQ(m_source.frontmostApplication()->localizedName, text("XTerm"));
        EXPECT_EQ(m_source.frontmostApplication()->localizedName, text("XTerm"));
        m_desktop.activate(editor);
        EXPECT_EQ(m_source.frontmostApplication()->localizedName, text("Mousepad"));
    }
}

TEST_F(X11ForegroundSourceTest, lastWindowClosed_theNewOneIsTold)
{
    m_desktop.activate(m_desktop.startEditor(text("notes.txt")));
    TestProcess &terminal = m_desktop.start(text("xterm"), {text("-T"), text("brief"), text("-e"), text("cat")});
    m_desktop.activate(m_desktop.waitForWindow(text("brief")));
    EXPECT_EQ(m_source.frontmostApplication()->localizedName, text("XTerm"));
    terminal.stop();
    waitUntil(text("the editor to be told"), 10s, [this] {
        const auto application = m_source.frontmostApplication();
        return application && application->localizedName == text("Mousepad");
    });
}

TEST_F(X11ForegroundSourceTest, windowActivatedBetweenTheCalls_doesNotMixFacts)
{
    const auto one = m_desktop.startTerminal(text("one"));
    const auto two = m_desktop.startTerminal(text("two"));
    m_desktop.activate(one);
    ASSERT_TRUE(m_source.frontmostApplication());
    m_desktop.activate(two);
    EXPECT_EQ(m_source.focusedWindow()->title, text("one"));
}

TEST_F(X11ForegroundSourceTest, eachSample_isAsOfItsOwnTime)
{
    const auto one = m_desktop.startTerminal(text("one"));
    const auto two = m_desktop.startTerminal(text("two"));
    m_desktop.activate(one);
    EXPECT_EQ(sampleTitle(), text("one"));
    setProperty(one, "_NET_WM_NAME", "8u", "one more");
    EXPECT_EQ(sampleTitle(), text("one more"));
    ASSERT_TRUE(m_source.frontmostApplication());
    m_desktop.activate(two);
    setProperty(one, "_NET_WM_NAME", "8u", "one at last");
    EXPECT_EQ(m_source.focusedWindow()->title, text("one more"));
    EXPECT_EQ(m_source.focusedWindow()->title, text("one at last"));
    EXPECT_EQ(sampleTitle(), text("two"));
    m_desktop.activate(one);
    EXPECT_EQ(sampleTitle(), text("one at last"));
}

TEST_F(X11ForegroundSourceTest, titlesInEveryScript_areRead)
{
    const auto window = m_desktop.startTerminal(text("x"));
    m_desktop.activate(window);
    setProperty(window, "_NET_WM_NAME", "8u", "B\u00fccher \u65e5\u672c \U0001F600");
    EXPECT_EQ(sampleTitle(), text("B\u00fccher \u65e5\u672c \U0001F600"));
}

TEST_F(X11ForegroundSourceTest, compoundTextTitle_isRead)
{
    m_desktop.start(text("xterm"), {text("-T"), text("\u041f\u0440\u0438\u0432\u0435\u0442 \u65e5\u672c"),
                                    text("-class"), text("Odd"), text("-e"), text("cat")});
    waitUntil(text("the terminal"), 20s,
              [this] { return sampleTitle() == text("\u041f\u0440\u0438\u0432\u0435\u0442 \u65e5\u672c"); });
    EXPECT_EQ(m_source.frontmostApplication()->localizedName, text("Odd"));
}

TEST_F(X11ForegroundSourceTest, windowOfAnotherMachine_hasNoPid)
{
    const auto window = m_desktop.startTerminal(text("far away"));
    m_desktop.activate(window);
    setProperty(window, "WM_CLIENT_MACHINE", "8s", "elsewhere.example");
    EXPECT_EQ(m_source.frontmostApplication()->processIdentifier, 0);
    EXPECT_EQ(m_source.frontmostApplication()->localizedName, text("XTerm"));
}

TEST_F(X11ForegroundSourceTest, bothPartsOfTheClass_areTold)
{
    const auto window = m_desktop.startTerminal(text("classy"));
    m_desktop.activate(window);
    const auto toldClass = [this, window](QByteArray value) {
        value.replace('|', '\0');
        const auto connection = X11Connection::open(m_desktop.display());
        xcb_connection_t *server = connection.value()->get();
        xcb_change_property(server, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            uint32_t(value.size()), value.constData());
        std::free(xcb_get_input_focus_reply(server, xcb_get_input_focus(server), nullptr)); // it has been done
        return m_source.frontmostApplication()->windowClass;
    };
    EXPECT_EQ(toldClass("one|Two|"), text("one Two"));
    EXPECT_EQ(toldClass("one"), text("one"));
    EXPECT_EQ(toldClass("|Two|"), text("Two"));
    EXPECT_EQ(toldClass("|"), QString());
}

TEST_F(X11ForegroundSourceTest, windowManagerThatNamesTheActiveWindow_leavesNothingUnavailable)
{
    EXPECT_EQ(m_source.unavailableFacts(), QList<UnavailableFact>());
}

TEST_F(X11ForegroundSourceTest, windowManagerThatHasGone_leavesTheActiveWindowUnavailable)
{
    m_desktop.windowManager().kill();
    waitUntil(text("its word to end"), 10s, [this] { return !m_source.unavailableFacts().isEmpty(); });
    EXPECT_EQ(m_source.unavailableFacts()[0].reason, text("no window manager says which window is active"));
}

TEST_F(X11ForegroundSourceTest, shadowDrawnByTheProgram_isNotInTheFrame)
{
    const auto window = m_desktop.startTerminal(text("shadow"));
    m_desktop.activate(window);
    const QRectF plain = *sampleWindow()->frame;
    setProperty(window, "_GTK_FRAME_EXTENTS", "32c", "10, 20, 5, 7");
    EXPECT_EQ(*sampleWindow()->frame, plain.adjusted(10, 5, -20, -7));
    setProperty(window, "_GTK_FRAME_EXTENTS", "32c", "4294967295, 4294967295, 4294967295, 4294967295");
    EXPECT_FALSE(sampleWindow()->frame->isValid());
}

TEST_F(X11ForegroundSourceTest, windowThatVanishesBetweenTheCalls_hasNoFacts)
{
    TestProcess &terminal = m_desktop.start(text("xterm"), {text("-T"), text("brief"), text("-e"), text("cat")});
    m_desktop.activate(m_desktop.waitForWindow(text("brief")));
    ASSERT_TRUE(m_source.frontmostApplication());
    terminal.stop();
    waitUntil(text("the window to go"), 10s, [this] {
        const auto window = m_source.focusedWindow();
        return window && !window->title && !window->frame;
    });
    EXPECT_TRUE(m_source.mouseLocation());
}

TEST_F(X11ForegroundSourceTest, noActiveWindow_isNoApplication)
{
    EXPECT_FALSE(m_source.frontmostApplication());
    EXPECT_FALSE(m_source.focusedWindow());
    EXPECT_TRUE(m_source.mouseLocation());
}

TEST_F(X11ForegroundSourceTest, twoMonitors_countFromTheMainOnesCorner)
{
    m_desktop.setMonitors({{.name = text("left"), .pixels = {0, 0, 640, 800}, .hasConnector = true},
                           {.name = text("right"), .pixels = {640, 50, 640, 750}, .primary = true}});
    m_desktop.activate(m_desktop.startTerminal(text("placed"), text("60x10+100+150")));
    EXPECT_EQ(sampleWindow()->frame->topLeft(), QPointF(100 - 640, 150 - 50));
    m_desktop.moveMouse({700, 60});
    EXPECT_EQ(m_source.mouseLocation(), QPointF(60, 10));
    m_desktop.moveMouse({10, 20});
    EXPECT_EQ(m_source.mouseLocation(), QPointF(-630, -30));
}

TEST_F(X11ForegroundSourceTest, restartedServer_isFoundAgain)
{
    EXPECT_TRUE(m_source.mouseLocation());
    m_desktop.restartServer();
    EXPECT_TRUE(m_source.mouseLocation());
    m_desktop.activate(m_desktop.startTerminal(text("again")));
    EXPECT_EQ(sampleTitle(), text("again"));
}

TEST_F(X11ForegroundSourceTest, deadServer_isNothing)
{
    EXPECT_TRUE(m_source.mouseLocation());
    m_desktop.server().kill();
    for (int attempt = 0; attempt < 3; ++attempt) {
        EXPECT_FALSE(m_source.frontmostApplication());
        EXPECT_FALSE(m_source.focusedWindow());
        EXPECT_FALSE(m_source.mouseLocation());
    }
}

TEST(X11ForegroundSourceAlone, noDisplay_isNothing)
{
    X11ForegroundSource source(":64999", [](const QString &) -> ForegroundApplication {
        ADD_FAILURE() << "a window was found";
        return {};
    });
    EXPECT_FALSE(source.frontmostApplication());
    EXPECT_FALSE(source.mouseLocation());
    const auto unavailable = source.unavailableFacts();
    ASSERT_EQ(unavailable.size(), 2);
    EXPECT_EQ(unavailable[0].reason, text("the X server can't be reached"));
    EXPECT_EQ(unavailable[1].fact, text("pointer position"));
}

TEST(X11ForegroundSourceAlone, noWindowManager_isThePointerAlone)
{
    VirtualDesktop desktop({.sessionBus = false});
    desktop.startTerminal(QStringLiteral("unmanaged"));
    X11ForegroundSource source(desktop.display(), [](const QString &) { return ForegroundApplication(); });
    EXPECT_FALSE(source.frontmostApplication());
    EXPECT_TRUE(source.mouseLocation());
    const QList<UnavailableFact> expected = {{.fact = text("foreground application, window title and window position"),
                                              .reason = text("no window manager says which window is active")}};
    EXPECT_EQ(source.unavailableFacts(), expected);
}

} // namespace
} // namespace ostrel
