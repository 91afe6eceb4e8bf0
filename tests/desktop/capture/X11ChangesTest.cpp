#include "RandomPainter.h"
#include "X11ChangesFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace ostrel;

namespace {

const QRect screen(0, 0, 640, 400);
const std::vector<RowRange> nothing;

/// Servers that lack one thing or another.
struct Server {
    const char *name;
    const char *withoutExtension;
    int steps;
};

class X11ChangesOfServer : public X11Changes, public testing::WithParamInterface<Server>
{
protected:
    X11ChangesOfServer()
        : X11Changes({.size = screen.size(), .sessionBus = false, .serverArguments = arguments(GetParam())})
    {}

    static QStringList arguments(const Server &server)
    {
        if (!server.withoutExtension)
            return {};
        return {QStringLiteral("-extension"), QString::fromLatin1(server.withoutExtension)};
    }
};

INSTANTIATE_TEST_SUITE_P(, X11ChangesOfServer,
                         testing::Values(Server{"complete", nullptr, 1'000}, Server{"withoutShm", "MIT-SHM", 300},
                                         Server{"withoutDamage", "DAMAGE", 100}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_P(X11ChangesOfServer, manyRandomChanges_giveThePicturesThatTheScreenShows)
{
    m_desktop.setMonitors(twoMonitors);
    Followed onLeft = follow(monitorA);
    Followed onRight = follow(monitorB);
    RandomPainter painter(m_desktop.display(), 21);
    for (int step = 0; step < GetParam().steps && !HasFailure(); ++step) {
        for (unsigned changes = painter.number(4); changes > 0; --changes)
            painter.paint();
        SCOPED_TRACE(step);
        look(onLeft);
        look(onRight);
    }
}

TEST_P(X11ChangesOfServer, unchangedScreen_isToldUnlessTheServerCannot)
{
    m_desktop.setMonitors(twoMonitors);
    Followed monitor = follow(monitorA);
    EXPECT_FALSE(look(monitor)) << "nothing is known of a first picture";
    const bool isTold = qstrcmp(GetParam().withoutExtension, "DAMAGE") != 0;
    EXPECT_EQ(look(monitor), isTold ? ChangedRows(nothing) : std::nullopt);
}

TEST_F(X11Changes, changedArea_isToldByItsRowsAndOnlyOnce)
{
    m_desktop.setMonitors(twoMonitors);
    Followed monitor = follow(monitorA);
    look(monitor);
    m_painter.fill({10, 50, 20, 7}, 0xff0000);
    m_painter.fill({200, 250, 20, 9}, 0xff0000);
    EXPECT_EQ(look(monitor), (std::vector<RowRange>{{50, 57}, {250, 259}}));
    EXPECT_EQ(look(monitor), nothing);
}

TEST_F(X11Changes, changeOnTheOtherMonitorOnly_isNoneHere)
{
    m_desktop.setMonitors(twoMonitors);
    m_painter.movePointer({10, 10});
    Followed onLeft = follow(monitorA);
    Followed onRight = follow(monitorB);
    look(onLeft);
    look(onRight);
    m_painter.fill(left.adjusted(0, 0, 0, 100), 0x00ff00);
    EXPECT_EQ(look(onRight), nothing);
    EXPECT_EQ(look(onLeft), (std::vector<RowRange>{{0, 300}}));
    m_painter.movePointer({50, 60});
    EXPECT_EQ(look(onRight), nothing) << "the pointer is over there too";
}

TEST_F(X11Changes, areaAcrossTheEdgeOfTwoMonitors_isToldOnBoth)
{
    m_desktop.setMonitors(twoMonitors);
    Followed onLeft = follow(monitorA);
    Followed onRight = follow(monitorB);
    look(onLeft);
    look(onRight);
    m_painter.fill({390, 90, 20, 30}, 0x0000ff); // the right one begins at (400, 100)
    EXPECT_EQ(look(onLeft), (std::vector<RowRange>{{90, 120}}));
    EXPECT_EQ(look(onRight), (std::vector<RowRange>{{0, 20}}));
}

TEST_F(X11Changes, pointerThatMovesOverAStillScreen_isToldByTheRowsItLeavesAndEnters)
{
    constexpr std::uint16_t dot = 38;
    m_desktop.setMonitors(twoMonitors);
    m_painter.fill(screen, 0xffffff);
    m_painter.setCursor(dot, 0xff0000);
    m_painter.movePointer({100, 50});
    Followed monitor = follow(monitorA);
    look(monitor);
    m_painter.movePointer({100, 250});
    const ChangedRows rows = look(monitor);
    ASSERT_TRUE(rows);
    ASSERT_EQ(rows->size(), 2u);
    EXPECT_TRUE((*rows)[0].begin <= 50 && 50 < (*rows)[0].end);
    EXPECT_TRUE((*rows)[1].begin <= 250 && 250 < (*rows)[1].end);
    EXPECT_EQ(look(monitor), nothing);
}

TEST_F(X11Changes, twoSourcesOfOneDisplay_areEachToldEveryChange)
{
    m_desktop.setMonitors(twoMonitors);
    Followed first = follow(monitorA);
    Followed second = follow(monitorA);
    look(first);
    look(second);
    m_painter.fill({10, 50, 20, 7}, 0xff0000);
    EXPECT_EQ(look(first), (std::vector<RowRange>{{50, 57}}));
    EXPECT_EQ(look(first), nothing);
    m_painter.fill({10, 150, 20, 7}, 0xff0000);
    EXPECT_EQ(look(second), (std::vector<RowRange>{{50, 57}, {150, 157}}));
    EXPECT_EQ(look(first), (std::vector<RowRange>{{150, 157}}));
}

TEST_F(X11Changes, windowsOpenedMovedResizedOverlappingOffScreenAndClosed_areSeen)
{
    m_desktop.setMonitors(twoMonitors);
    Followed onLeft = follow(monitorA);
    Followed onRight = follow(monitorB);
    const auto lookAtBoth = [&](const char *what) {
        SCOPED_TRACE(what);
        look(onLeft);
        look(onRight);
    };
    lookAtBoth("empty");
    const auto window = m_painter.openWindow({300, 80, 200, 100}, 0x224466);
    lookAtBoth("opened across the edge");
    const auto child = m_painter.openWindow({10, 10, 50, 20}, 0xffff00, window);
    lookAtBoth("child opened");
    m_painter.placeWindow(child, {150, 70, 100, 100});
    lookAtBoth("child moved beyond its parent");
    m_painter.placeWindow(window, {100, 120, 200, 100});
    lookAtBoth("moved");
    m_painter.placeWindow(window, {100, 120, 350, 180});
    lookAtBoth("resized");
    const auto other = m_painter.openWindow({200, 150, 300, 120}, 0xaa0000);
    lookAtBoth("overlapped");
    m_painter.raiseWindow(window);
    lookAtBoth("raised");
    m_painter.placeWindow(other, {-150, 350, 300, 120});
    lookAtBoth("partly off the screen");
    m_painter.placeWindow(other, {2'000, 2'000, 300, 120});
    lookAtBoth("wholly off the screen");
    m_painter.closeWindow(window);
    lookAtBoth("closed");
}

TEST_F(X11Changes, monitorThatMoves_isFetchedWholeThereAndFollowedOn)
{
    m_desktop.setMonitors(twoMonitors);
    m_painter.paintNoise(screen, 3);
    Followed monitor = follow(monitorB);
    look(monitor);
    EXPECT_EQ(look(monitor), nothing);
    auto monitors = twoMonitors;
    monitors[1].pixels = right.translated(-100, 50);
    m_desktop.setMonitors(monitors);
    EXPECT_FALSE(look(monitor));
    EXPECT_EQ(look(monitor), nothing);
    m_painter.fill({310, 160, 5, 5}, 0xffffff); // 10 below the monitor's top
    EXPECT_EQ(look(monitor), (std::vector<RowRange>{{10, 15}}));
}

TEST_F(X11Changes, monitorThatChangesItsSize_isFollowedWhenOpenedAgain)
{
    m_desktop.setMonitors(twoMonitors);
    Followed before = follow(monitorA);
    look(before);
    auto monitors = twoMonitors;
    monitors[0].pixels = QRect(0, 0, 200, 350);
    m_desktop.setMonitors(monitors);
    EXPECT_FALSE(before.kept->capture());
    Followed after = follow(monitorA);
    EXPECT_FALSE(look(after));
    m_painter.fill({0, 320, 10, 10}, 0xffffff);
    EXPECT_EQ(look(after), (std::vector<RowRange>{{320, 330}}));
}

TEST_F(X11Changes, strangerWhoDrawsAllTheWhile_leavesNoStalePictureWhenHeStops)
{
    m_desktop.setMonitors(twoMonitors);
    Followed onLeft = follow(monitorA);
    Followed onRight = follow(monitorB);
    for (unsigned round = 0; round < 20; ++round) {
        RandomPainter painter(m_desktop.display(), round);
        std::atomic<bool> isOver = false;
        std::thread stranger([&] {
            while (!isOver)
                painter.paint();
        });
        for (int i = 0; i < 25; ++i) {
            keepUp(onLeft);
            keepUp(onRight);
        }
        isOver = true;
        stranger.join();
        SCOPED_TRACE(round);
        look(onLeft);
        look(onRight);
    }
}

} // namespace
