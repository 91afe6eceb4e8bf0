#include "TrayStory.h"

#include <thread>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class TrayIcon : public TrayStory, public testing::WithParamInterface<TrayDesktop::Host>
{
protected:
    TrayIcon() : TrayStory(GetParam()) { allowAccessibility(); }

    /// Clicks the icon for the menu, whoever draws it, and waits for it. @return its only item
    QPoint openMenu(VirtualDesktop::Button button, const QString &heldKey = {})
    {
        auto &desktop = m_tray.desktop();
        const auto before = desktop.visibleWindows();
        desktop.click(m_icon.center(), button, heldKey);
        QRect menu;
        waitUntil(QStringLiteral("the menu"), patience, [&] {
            for (const auto window : desktop.visibleWindows()) {
                const QRect place = before.contains(window) ? QRect() : desktop.placeOf(window);
                if (place.width() > smallestMenu)
                    menu = place;
            }
            return !menu.isEmpty();
        });
        return menu.center();
    }

    static constexpr int smallestMenu = 60;
};

TEST_P(TrayIcon, click_opensThePanelAtTheIconAndTheNextOneClosesIt)
{
    open();
    const QRect place = panel().window();
    EXPECT_EQ(place.width(), 320);
    EXPECT_GE(place.left(), 8);
    EXPECT_LE(place.right(), 1280 - 1 - 8);
    EXPECT_GT(place.top(), m_icon.bottom());
    EXPECT_TRUE(panel().shows("Start recording"));
    clickIcon();
    waitUntilPanelIsClosed();
    open();
    key("Escape");
    waitUntilPanelIsClosed();
    end();
}

/// The press on the icon is seen long before the tray tells of the click.
TEST_P(TrayIcon, clickThatTheTrayTellsLate_closesThePanelAndDoesNotOpenItAgain)
{
    open();
    m_tray.freezeHost();
    clickIcon();
    std::this_thread::sleep_for(1s); // longer than a press without its click is remembered, in the program's real time
    m_tray.thawHost();
    waitUntilPanelIsClosed();
    open();
    end();
}

TEST_P(TrayIcon, rightClick_closesThePanelAndOpensTheMenuThatQuits)
{
    open();
    const QPoint quit = openMenu(VirtualDesktop::RightButton);
    waitUntilPanelIsClosed();
    m_tray.desktop().click(quit);
    expectItEnds();
}

TEST_P(TrayIcon, controlClick_opensTheMenuAndNotThePanel)
{
    start();
    const QPoint quit = openMenu(VirtualDesktop::LeftButton, QStringLiteral("ctrl"));
    EXPECT_FALSE(isPanelShown());
    m_tray.desktop().click(quit);
    expectItEnds();
}

TEST_P(TrayIcon, trayThatEndsAndComesBack_hasTheIconAgain)
{
    start();
    m_tray.endHost();
    m_tray.startHost();
    m_icon = m_tray.waitForIcon();
    open();
    end();
}

INSTANTIATE_TEST_SUITE_P(Hosts, TrayIcon,
                         testing::Values(TrayDesktop::Host::XEmbed, TrayDesktop::Host::StatusNotifierItem),
                         [](const auto &info) {
                             return info.param == TrayDesktop::Host::XEmbed ? std::string("XEmbed")
                                                                            : std::string("StatusNotifierItem");
                         });

class TrayProgram : public TrayStory
{
protected:
    TrayProgram() { allowAccessibility(); }

    void moveTray(const TrayDesktop::Place &place)
    {
        m_tray.endHost();
        m_tray.startHost(place);
        m_icon = m_tray.waitForIcon();
    }
    /// Opens the panel and closes it again. @return where it was
    QRect placeOfPanel()
    {
        open();
        const QRect place = panel().window();
        key("Escape");
        waitUntilPanelIsClosed();
        return place;
    }
};

TEST_F(TrayProgram, secondStart_opensThePanelOfTheFirst)
{
    start();
    const auto second = m_ostrel.run({});
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(second.messages, QByteArray());
    panel().waitFor("Start recording");
    end();
}

TEST_F(TrayProgram, panel_isInNoTaskBarHoweverOftenItIsOpened)
{
    start();
    for (int time = 1; time <= 2; ++time) {
        SCOPED_TRACE(time);
        open();
        const auto window = m_tray.desktop().waitForWindow(QStringLiteral("Tamsk Ostrel"));
        waitUntil(QStringLiteral("the window manager"), patience, [&] {
            const QByteArray states =
                m_tray.desktop().run(QStringLiteral("xprop"),
                                     {QStringLiteral("-id"), QString::number(window), QStringLiteral("_NET_WM_STATE")});
            return states.contains("_NET_WM_STATE_SKIP_TASKBAR") && states.contains("_NET_WM_STATE_SKIP_PAGER") &&
                   states.contains("_NET_WM_STATE_ABOVE");
        });
        key("Escape");
        waitUntilPanelIsClosed();
    }
    end();
}

TEST_F(TrayProgram, trayAtAnyEdge_panelOpensBesideItWithinTheScreen)
{
    start();
    const QRect screen(0, 0, 1280, 800);
    for (const char *edge : {"bottom", "left", "right"}) {
        SCOPED_TRACE(edge);
        moveTray({.edge = QString::fromLatin1(edge)});
        const QRect place = placeOfPanel();
        EXPECT_TRUE(screen.marginsRemoved({8, 0, 8, 0}).contains(place)) << testing::PrintToString(place);
        EXPECT_FALSE(place.intersects(m_icon));
        EXPECT_EQ(place.size(), QSize(320, 560));
        EXPECT_LT(place.bottom(), m_icon.top()) << "it opens upwards, the icon being at the lower end";
    }
    end();
}

TEST_F(TrayProgram, iconOnTheSecondMonitor_panelStaysOnThatOne)
{
    start();
    moveTray({.fromTheEnd = 500});
    m_tray.desktop().setMonitors(
        {{.name = QStringLiteral("left"), .pixels = {0, 0, 740, 800}, .primary = true, .hasConnector = true},
         {.name = QStringLiteral("right"), .pixels = {740, 0, 540, 800}}});
    ASSERT_GE(m_icon.left(), 740);
    ASSERT_LT(m_icon.left(), 740 + 40);
    const QRect place = placeOfPanel();
    EXPECT_EQ(place.left(), 740 + 8) << "half of it would be on the other monitor";
    EXPECT_GT(place.top(), m_icon.bottom());
    end();
}

TEST_F(TrayProgram, headerAndCtrlQ_quit)
{
    open().press("Quit Tamsk Ostrel");
    expectItEnds();
    open();
    key("ctrl+q");
    expectItEnds();
}

} // namespace
