#include "platform/x11/base/X11Monitors.h"
#include "base/Fault.h"
#include "platform/x11/base/X11Connection.h"
#include "support/Printers.h"
#include "support/ScopedVariable.h"
#include "support/VirtualDesktop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

namespace ostrel {
namespace {

constexpr quint32 screenId = 0x55c54c11u; // of "screen", the virtual server's connector

QString messageFor(const QByteArray &display)
{
    const auto connection = X11Connection::open(display);
    if (connection)
        return QStringLiteral("connected");
    EXPECT_TRUE(isFault(connection.error(), Fault::NoXDisplay));
    return connection.error().localizedDescription;
}

X11MonitorLayout layoutOf(const VirtualDesktop &desktop)
{
    auto connection = X11Connection::open(desktop.display());
    if (!connection)
        failTest(connection.error().localizedDescription);
    const auto layout = readMonitors(**connection);
    if (!layout)
        failTest(layout.error().localizedDescription);
    X11OriginRequest origin(**connection);
    EXPECT_EQ(origin.collect(), layout->origin());
    return *layout;
}

/// How many of them are connected.
int connectAtOnce(const QByteArray &display, int threadCount)
{
    std::latch all(threadCount);
    std::atomic<int> connected = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < threadCount; ++i)
            threads.emplace_back([&] {
                all.arrive_and_wait();
                connected += X11Connection::open(display) ? 1 : 0;
            });
    }
    return connected;
}

TEST(X11Connection, manyThreadsAtOnce_areConnectedEach)
{
    constexpr int threadCount = 8;
    constexpr int rounds = 300;
    const VirtualDesktop desktop({.sessionBus = false});
    const ScopedVariable secretsInTheHomeFolder("XAUTHORITY", std::nullopt);
    for (int i = 1; i <= rounds; ++i) {
        // Where the secrets are looked for is kept in a buffer that is made anew for each longer name.
        const ScopedVariable home("HOME", QByteArray("/nowhere/") + QByteArray(i, 'x'));
        ASSERT_EQ(connectAtOnce(desktop.display(), threadCount), threadCount);
    }
}

TEST(X11Connection, noDisplay_saysWhatIsMissingAndHowToGetIt)
{
    const ScopedVariable unset("DISPLAY", std::nullopt);
    EXPECT_EQ(messageFor({}),
              QStringLiteral("No X display can be reached (DISPLAY is not set). Start this in a graphical "
                             "session, or set DISPLAY to a display that you may use."));
}

TEST(X11Connection, unreachableDisplay_isNamed)
{
    const ScopedVariable set("DISPLAY", QByteArray(":64999"));
    const QString words = QStringLiteral("(DISPLAY is \":64999\")");
    EXPECT_TRUE(messageFor({}).contains(words));
    EXPECT_TRUE(messageFor(":64999").contains(words));
    EXPECT_TRUE(messageFor("nonsense").contains(QStringLiteral("\"nonsense\"")));
}

TEST(X11Connection, screenThatDoesNotExist_isNoDisplay)
{
    VirtualDesktop desktop({.sessionBus = false});
    EXPECT_TRUE(messageFor(desktop.display() + ".7").startsWith(QStringLiteral("No X display")));
    EXPECT_EQ(messageFor(desktop.display() + ".0"), QStringLiteral("connected"));
}

TEST(X11Connection, atoms_areTheServers)
{
    VirtualDesktop desktop({.sessionBus = false});
    const auto connection = X11Connection::open(desktop.display());
    ASSERT_TRUE(connection);
    (*connection)->internAtoms({"WM_NAME", "_OSTREL_TEST"});
    EXPECT_EQ((*connection)->atom("WM_NAME"), xcb_atom_t(XCB_ATOM_WM_NAME));
    EXPECT_EQ((*connection)->atom("STRING"), xcb_atom_t(XCB_ATOM_STRING));
    EXPECT_NE((*connection)->atom("_OSTREL_TEST"), xcb_atom_t(XCB_ATOM_NONE));
    EXPECT_EQ((*connection)->atom("_OSTREL_TEST"), (*connection)->atom("_OSTREL_TEST"));
}

TEST(X11Monitors, oneScreen_isTheMainMonitor)
{
    VirtualDesktop desktop({.size = {1280, 800}, .sessionBus = false});
    const X11MonitorLayout layout = layoutOf(desktop);
    ASSERT_EQ(layout.monitors.size(), 1);
    EXPECT_EQ(layout.monitors[0].displayId, screenId);
    EXPECT_EQ(layout.monitors[0].name, QStringLiteral("screen"));
    EXPECT_EQ(layout.monitors[0].pixels, QRect(0, 0, 1280, 800));
    EXPECT_EQ(layout.mainIndex, 0);
}

TEST(X11Monitors, twoMonitors_areNamedByConnectorElseThemselves)
{
    VirtualDesktop desktop({.size = {1920, 1080}, .sessionBus = false});
    desktop.setMonitors({{.name = QStringLiteral("A"), .pixels = {0, 0, 960, 1080}, .hasConnector = true},
                         {.name = QStringLiteral("B"), .pixels = {960, 80, 960, 1000}, .primary = true}});
    const X11MonitorLayout layout = layoutOf(desktop);
    ASSERT_EQ(layout.monitors.size(), 2);
    ASSERT_TRUE(layout.mainIndex);
    const X11Monitor &main = layout.monitors[*layout.mainIndex];
    const X11Monitor &other = layout.monitors[1 - *layout.mainIndex];
    EXPECT_EQ(
        main,
        (X11Monitor{
            .displayId = 0xc70bfb85u, .name = QStringLiteral("B"), .pixels = {960, 80, 960, 1000}, .primary = true}));
    EXPECT_EQ(other,
              (X11Monitor{.displayId = screenId, .name = QStringLiteral("screen"), .pixels = {0, 0, 960, 1080}}));
    EXPECT_EQ(layout.origin(), QPoint(960, 80));
    EXPECT_EQ(layout.toDesktop(other.pixels), QRectF(-960, -80, 960, 1080));
}

TEST(X11Monitors, serverWithoutRandr_isOneMonitor)
{
    VirtualDesktop desktop({.size = {1024, 768},
                            .sessionBus = false,
                            .serverArguments = {QStringLiteral("-extension"), QStringLiteral("RANDR")}});
    const X11MonitorLayout layout = layoutOf(desktop);
    ASSERT_EQ(layout.monitors.size(), 1);
    EXPECT_EQ(layout.monitors[0].displayId, screenId);
    EXPECT_EQ(layout.monitors[0].pixels, QRect(0, 0, 1024, 768));
    EXPECT_EQ(layout.mainIndex, 0);
}

TEST(X11Monitors, lostConnection_isAnError)
{
    VirtualDesktop desktop({.sessionBus = false});
    const auto connection = X11Connection::open(desktop.display());
    ASSERT_TRUE(connection);
    EXPECT_FALSE((*connection)->isBroken());
    desktop.server().kill();
    const auto layout = readMonitors(**connection);
    ASSERT_FALSE(layout);
    EXPECT_TRUE(isFault(layout.error(), Fault::NoXDisplay));
    EXPECT_TRUE((*connection)->isBroken());
}

} // namespace
} // namespace ostrel
