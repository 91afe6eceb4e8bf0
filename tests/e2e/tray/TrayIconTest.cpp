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

TEST_F(TrayProgram, headerAndCtrlQ_quit)
{
    open().press("Quit Tamsk Ostrel");
    expectItEnds();
    open();
    key("ctrl+q");
    expectItEnds();
}

} // namespace
