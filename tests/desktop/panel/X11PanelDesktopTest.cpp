#include "platform/x11/panel/X11PanelDesktop.h"

#include "support/ManualClock.h"
#include "support/RunTask.h"
#include "support/VirtualDesktop.h"

#include <gtest/gtest.h>

#include <array>

using namespace ostrel;

namespace {

/// A program that makes itself known by owning a selection, as compositors and trays do.
class SelectionOwner
{
public:
    SelectionOwner(const QByteArray &display, const char *selection) : m_connection(*X11Connection::open(display))
    {
        xcb_create_window(connection(), XCB_COPY_FROM_PARENT, m_window, m_connection->root(), 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_set_selection_owner(connection(), m_window, m_connection->atom(selection), XCB_CURRENT_TIME);
        xcb_flush(connection());
    }

    /// Four times the same colour.
    void setColors(quint32 red, quint32 green, quint32 blue)
    {
        const std::array<quint32, 12> parts{red, green, blue, red, green, blue, red, green, blue, red, green, blue};
        xcb_change_property(connection(), XCB_PROP_MODE_REPLACE, m_window,
                            m_connection->atom("_NET_SYSTEM_TRAY_COLORS"), XCB_ATOM_CARDINAL, 32, parts.size(),
                            parts.data());
        xcb_flush(connection());
    }

private:
    xcb_connection_t *connection() const { return m_connection->get(); }

    const std::unique_ptr<X11Connection> m_connection;
    const xcb_window_t m_window = xcb_generate_id(m_connection->get());
};

class X11PanelDesktopTest : public testing::Test
{
protected:
    X11PanelDesktopTest()
    {
        QObject::connect(&m_panel, &PanelDesktop::compositedChanged, [this] { ++m_changes; });
        QObject::connect(&m_panel, &PanelDesktop::trayForegroundChanged, [this] { ++m_changes; });
    }
    bool becomes(const std::function<bool()> &holds) { return pumpUntil(holds); }
    void click(int button)
    {
        m_desktop.run(QStringLiteral("xdotool"), {QStringLiteral("click"), QString::number(button)});
    }

    VirtualDesktop m_desktop{{.windowManager = true, .sessionBus = false}};
    X11PanelDesktop m_panel{*X11Connection::open(m_desktop.display())};
    int m_changes = 0;
};

TEST_F(X11PanelDesktopTest, pressOnTheBareDesktop_isToldWhileItIsMonitored)
{
    int presses = 0;
    auto monitor = m_panel.monitorClicks([&presses] { ++presses; });
    ASSERT_TRUE(monitor);
    m_desktop.moveMouse({600, 400});
    click(1);
    EXPECT_TRUE(becomes([&] { return presses == 1; }));
    click(3); // the window manager's menu, which grabs the pointer
    EXPECT_TRUE(becomes([&] { return presses == 2; }));
    click(1); // and is closed by this
    EXPECT_TRUE(becomes([&] { return presses == 3; }));
    click(4);
    click(5);
    click(1);
    EXPECT_TRUE(becomes([&] { return presses == 4; })) << "the wheel is no press";
    monitor.reset();
    click(1);
    settleEvents();
    EXPECT_EQ(presses, 4);
}

TEST_F(X11PanelDesktopTest, monitorEndedByItsOwnPress_isEnded)
{
    std::unique_ptr<PanelDesktop::ClickMonitor> monitor;
    int presses = 0;
    monitor = m_panel.monitorClicks([&] {
        ++presses;
        monitor.reset();
    });
    click(1);
    EXPECT_TRUE(becomes([&] { return presses == 1; }));
    monitor = m_panel.monitorClicks([&presses] { presses += 10; });
    click(1);
    EXPECT_TRUE(becomes([&] { return presses == 11; })) << "and can be started anew";
}

TEST_F(X11PanelDesktopTest, compositorThatComesAndGoes_isFollowed)
{
    EXPECT_FALSE(m_panel.isComposited());
    {
        const SelectionOwner compositor(m_desktop.display(), "_NET_WM_CM_S0");
        EXPECT_TRUE(becomes([this] { return m_panel.isComposited(); }));
    }
    EXPECT_TRUE(becomes([this] { return !m_panel.isComposited(); }));
    EXPECT_EQ(m_changes, 2);
}

TEST_F(X11PanelDesktopTest, trayThatSaysItsColours_isFollowed)
{
    EXPECT_EQ(m_panel.trayForeground(), std::nullopt);
    {
        SelectionOwner tray(m_desktop.display(), "_NET_SYSTEM_TRAY_S0");
        tray.setColors(0xFFFF, 0x8080, 0x0000);
        EXPECT_TRUE(becomes([this] { return m_panel.trayForeground() == QColor(0xFF, 0x80, 0x00); }));
        tray.setColors(0x1010, 0x1010, 0x1010);
        EXPECT_TRUE(becomes([this] { return m_panel.trayForeground() == QColor(0x10, 0x10, 0x10); }));
    }
    EXPECT_TRUE(becomes([this] { return !m_panel.trayForeground(); }));
}

TEST_F(X11PanelDesktopTest, serverThatEnds_leavesWhatWasKnown)
{
    const SelectionOwner compositor(m_desktop.display(), "_NET_WM_CM_S0");
    EXPECT_TRUE(becomes([this] { return m_panel.isComposited(); }));
    m_desktop.restartServer();
    settleEvents();
    EXPECT_TRUE(m_panel.isComposited());
    EXPECT_FALSE(m_panel.monitorClicks([] {})) << "nobody tells of clicks any more";
}

} // namespace
