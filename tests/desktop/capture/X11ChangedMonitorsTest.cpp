#include "platform/x11/capture/X11DisplaySource.h"
#include "support/VirtualDesktop.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// A display source that has told of two monitors, "Left" and "Right", which then change.
class X11ChangedMonitors : public testing::Test
{
protected:
    using Monitor = VirtualDesktop::Monitor;

    X11ChangedMonitors()
    {
        m_desktop.setMonitors({m_left, m_right});
        tell();
    }

    void tell() { ASSERT_TRUE(m_displays.shareableContent().has_value()); }

    const Monitor m_left{.name = QStringLiteral("Left"), .pixels = {0, 0, 640, 400}, .hasConnector = true};
    const Monitor m_right{.name = QStringLiteral("Right"), .pixels = {640, 0, 640, 400}};
    VirtualDesktop m_desktop{{.size = {1280, 400}, .sessionBus = false}};
    X11DisplaySource m_displays{m_desktop.display()};
};

TEST_F(X11ChangedMonitors, nothing_isNoChange)
{
    EXPECT_FALSE(m_displays.haveDisplaysChanged());
    EXPECT_FALSE(m_displays.haveDisplaysChanged());
}

TEST_F(X11ChangedMonitors, monitorUnplugged_isAChangeUntilTheDisplaysAreReadAgain)
{
    m_desktop.setMonitors({m_left});
    EXPECT_TRUE(m_displays.haveDisplaysChanged());
    EXPECT_TRUE(m_displays.haveDisplaysChanged()) << "not only the first time";
    tell();
    EXPECT_FALSE(m_displays.haveDisplaysChanged());
}

TEST_F(X11ChangedMonitors, monitorPluggedIn_isAChange)
{
    m_desktop.setMonitors({m_left});
    tell();
    m_desktop.setMonitors({m_left, m_right});
    EXPECT_TRUE(m_displays.haveDisplaysChanged());
}

TEST_F(X11ChangedMonitors, monitorUnpluggedAndPluggedInAgain_isNoChange)
{
    m_desktop.setMonitors({m_left});
    EXPECT_TRUE(m_displays.haveDisplaysChanged());
    m_desktop.setMonitors({m_left, m_right});
    EXPECT_FALSE(m_displays.haveDisplaysChanged());
}

TEST_F(X11ChangedMonitors, monitorOfAnotherSize_isAChange)
{
    Monitor smaller = m_right;
    smaller.pixels.setWidth(320);
    m_desktop.setMonitors({m_left, smaller});
    EXPECT_TRUE(m_displays.haveDisplaysChanged());
}

TEST_F(X11ChangedMonitors, anotherMainMonitor_isAChange)
{
    Monitor primary = m_right;
    primary.primary = true;
    m_desktop.setMonitors({m_left, primary});
    EXPECT_TRUE(m_displays.haveDisplaysChanged());
}

TEST_F(X11ChangedMonitors, serverRestarted_isNotAChangeButAnError)
{
    m_desktop.restartServer();
    EXPECT_FALSE(m_displays.haveDisplaysChanged()) << "what a picture fails with says more";
    tell();
    EXPECT_FALSE(m_displays.haveDisplaysChanged());
}

TEST(X11NeverRead, monitors_haveNotChanged)
{
    X11DisplaySource neverUsed(QByteArrayLiteral(":no-such-display"));
    EXPECT_FALSE(neverUsed.haveDisplaysChanged());
}

} // namespace
