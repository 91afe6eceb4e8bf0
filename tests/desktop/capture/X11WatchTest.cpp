#include "X11CaptureFixture.h"
#include "platform/x11/capture/X11MonitorWatch.h"
#include "platform/x11/capture/X11PointerWatch.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

std::shared_ptr<X11Connection> connect(const QByteArray &display)
{
    auto opened = X11Connection::open(display);
    if (!opened)
        failTest(opened.error().localizedDescription);
    return std::move(*opened);
}

class X11Watch : public testing::Test
{
protected:
    VirtualDesktop m_desktop{{.size = {640, 400}, .sessionBus = false}};
    X11Painter m_painter{m_desktop.display()};
    std::shared_ptr<X11Connection> m_connection = connect(m_desktop.display());
};

/// Far longer than the server's loop takes to turn also while others keep the processor busy.
constexpr auto rest = 200ms;

class X11PointerWatching : public X11Watch
{
protected:
    bool hasStayed()
    {
        m_connection->dispatchEvents();
        return m_watch.hasStayed();
    }
    void waitForRest()
    {
        waitUntil(QStringLiteral("a pointer at rest"), 20s, [this] {
            m_watch.mark();
            return hasStayed();
        });
    }
    /// Expects a move after a rest to be told, and then one that follows at once not to be taken for rest.
    template <class Move>
    void expectTold(const Move &move)
    {
        waitForRest();
        const QPoint before = m_painter.pointer();
        move();
        ASSERT_NE(m_painter.pointer(), before) << "there is something to tell";
        waitUntil(QStringLiteral("news of the pointer"), 20s, [this] { return !hasStayed(); });
    }

    X11PointerWatch m_watch{m_connection, rest};
};

TEST_F(X11PointerWatching, restingPointer_hasStayedWhateverIsDrawn)
{
    waitForRest();
    m_painter.fill({10, 10, 100, 100}, 0xff0000);
    m_painter.setCursor(38, 0x00ff00);
    m_painter.closeWindow(m_painter.openWindow({0, 0, 640, 400}, 0x0000ff));
    EXPECT_TRUE(hasStayed());
}

TEST_F(X11PointerWatching, pointerThatWasNotMarkedAtRest_isNeverTakenToHaveStayed)
{
    waitForRest();
    m_painter.movePointer({100, 100});
    waitUntil(QStringLiteral("news of the pointer"), 20s, [this] { return !hasStayed(); });
    m_watch.mark();
    EXPECT_FALSE(hasStayed());
}

TEST_F(X11PointerWatching, warpedPointer_isTold)
{
    for (int i = 0; i < 5; ++i)
        expectTold([&] { m_painter.movePointer({100 + i, 100}); });
}

TEST_F(X11PointerWatching, pointerMovedByATestingTool_isTold)
{
    expectTold([&] {
        m_desktop.run(QStringLiteral("xdotool"),
                      {QStringLiteral("mousemove_relative"), QStringLiteral("7"), QStringLiteral("9")});
    });
}

TEST_F(X11PointerWatching, pointerThatAGrabConfines_isTold)
{
    m_painter.movePointer({300, 300});
    const auto window = m_painter.openWindow({10, 10, 50, 50}, 0xff0000);
    expectTold([&] { m_painter.confinePointer(window); });
    expectTold([&] { m_painter.placeWindow(window, {200, 200, 50, 50}); });
}

TEST_F(X11PointerWatching, pointerOutsideAScreenThatShrinks_isTold)
{
    m_painter.movePointer({600, 390});
    // The server does it, then refuses what the program asks next.
    expectTold([&] {
        m_desktop.start(QStringLiteral("xrandr"), {QStringLiteral("--fb"), QStringLiteral("320x240")}).waitForExit(20s);
    });
}

TEST_F(X11PointerWatching, twoWatchesOfOneConnection_areBothTold)
{
    X11PointerWatch other(m_connection, rest);
    waitUntil(QStringLiteral("a pointer at rest"), 20s, [&] {
        m_connection->dispatchEvents();
        other.mark();
        return other.hasStayed();
    });
    expectTold([&] { m_painter.movePointer({100, 100}); });
    waitUntil(QStringLiteral("news of the pointer"), 20s, [&] {
        m_connection->dispatchEvents();
        return !other.hasStayed();
    });
}

class X11MonitorWatching : public X11Watch
{
protected:
    X11MonitorWatching() { takeNews(); }

    /// The server has carried out what the watch sent.
    bool takeNews()
    {
        m_connection->reply<xcb_get_input_focus_reply>(xcb_get_input_focus(m_connection->get()));
        return m_watch.takeNews();
    }
    void xrandr(const QStringList &arguments) { m_desktop.start(QStringLiteral("xrandr"), arguments).waitForExit(20s); }

    X11MonitorWatch m_watch{m_connection};
};

TEST_F(X11MonitorWatching, nothing_isNoNews)
{
    m_painter.fill({0, 0, 640, 400}, 0xff0000);
    m_painter.movePointer({5, 5});
    EXPECT_FALSE(takeNews());
}

TEST_F(X11MonitorWatching, monitorThatIsSetChangedOrDeleted_isToldWithoutAsking)
{
    const auto set = [this](const QString &place) {
        xrandr({QStringLiteral("--setmonitor"), QStringLiteral("A"), place, QStringLiteral("screen")});
    };
    set(QStringLiteral("320/50x400/50+0+0"));
    EXPECT_TRUE(m_watch.takeNews());
    xrandr({QStringLiteral("--delmonitor"), QStringLiteral("A")});
    EXPECT_TRUE(m_watch.takeNews());
    set(QStringLiteral("320/50x400/50+10+0"));
    EXPECT_TRUE(m_watch.takeNews());
    EXPECT_FALSE(m_watch.takeNews()) << "only once";
}

TEST_F(X11MonitorWatching, screenThatChangesItsSize_isToldWithoutAsking)
{
    xrandr({QStringLiteral("--fb"), QStringLiteral("320x240")});
    EXPECT_TRUE(m_watch.takeNews());
    xrandr({QStringLiteral("--fb"), QStringLiteral("640x400")});
    EXPECT_TRUE(m_watch.takeNews());
}

TEST_F(X11MonitorWatching, connectorThatBecomesPrimaryOrIsSwitchedOn_isToldWithoutAsking)
{
    xrandr({QStringLiteral("--output"), QStringLiteral("screen"), QStringLiteral("--primary")});
    EXPECT_TRUE(m_watch.takeNews());
    xrandr({QStringLiteral("--fb"), QStringLiteral("320x240")}); // takes the picture off the connector
    EXPECT_TRUE(m_watch.takeNews());
    xrandr({QStringLiteral("--output"), QStringLiteral("screen"), QStringLiteral("--auto")});
    EXPECT_TRUE(m_watch.takeNews());
}

} // namespace
