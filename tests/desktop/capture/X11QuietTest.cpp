#include "X11ChangesFixture.h"
#include "base/Fault.h"
#include "platform/x11/capture/X11Cursor.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const std::vector<RowRange> nothing;

/// Time by hand, and the connection that all pictures are taken through.
struct WithConnection {
    std::chrono::milliseconds m_now{0};
    std::shared_ptr<X11Connection> m_connection;

    X11CaptureSeams seams()
    {
        return {.patience = 500ms,
                .monotonicTime = [this] { return m_now; },
                .pointerRest = 200ms,
                .makeTracker =
                    [this](std::shared_ptr<X11Connection> connection) {
                        m_connection = connection;
                        return makeDamageTracker(std::move(connection));
                    }};
    }
};

/// A screen where nothing happens but by the test, and a pointer that comes to rest.
class X11Quiet : public WithConnection, public X11Changes
{
protected:
    X11Quiet() : X11Changes({.size = {640, 400}, .sessionBus = false}, seams())
    {
        m_desktop.setMonitors(twoMonitors);
        m_onLeft = follow(monitorA);
        m_onRight = follow(monitorB);
    }

    /// How many requests go out to the server for a picture.
    unsigned requestsFor(Followed &monitor)
    {
        const unsigned before = xcb_no_operation(m_connection->get()).sequence;
        keepUp(monitor);
        return xcb_no_operation(m_connection->get()).sequence - before - 1;
    }
    void waitForRest()
    {
        waitUntil(QStringLiteral("pictures without a question"), 20s,
                  [this] { return requestsFor(m_onLeft) == 0 && requestsFor(m_onRight) == 0; });
    }

    Followed m_onLeft;
    Followed m_onRight;
};

TEST_F(X11Quiet, stillScreenAndRestingPointer_takeNoQuestion)
{
    waitForRest();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(requestsFor(m_onLeft), 0u);
        EXPECT_EQ(look(m_onLeft), nothing);
        EXPECT_EQ(look(m_onRight), nothing);
    }
}

TEST_F(X11Quiet, changeAfterTheRest_isToldToWhomItConcernsAndQuietFollows)
{
    waitForRest();
    for (int i = 1; i <= 5; ++i) {
        m_painter.fill({390, 110, 20, 30}, unsigned(i)); // the right one begins at (400, 100)
        EXPECT_EQ(look(m_onLeft), (std::vector<RowRange>{{110, 140}}));
        EXPECT_EQ(requestsFor(m_onLeft), 0u);
        EXPECT_EQ(look(m_onRight), (std::vector<RowRange>{{10, 40}}));
        EXPECT_EQ(requestsFor(m_onRight), 0u);
    }
}

TEST_F(X11Quiet, pointerThatMovesAfterTheRest_isSeenOnBothMonitors)
{
    m_painter.movePointer({100, 100});
    for (const QPoint place : {QPoint(450, 150), QPoint(20, 280), QPoint(399, 150)}) {
        waitForRest();
        m_painter.movePointer(place);
        waitUntil(QStringLiteral("a question"), 20s, [this] { return requestsFor(m_onLeft) > 0; });
        look(m_onLeft);
        look(m_onRight);
    }
}

TEST_F(X11Quiet, pointerThatChangesItsShapeAtRest_isSeen)
{
    m_painter.movePointer({100, 100});
    for (const std::uint16_t glyph : {std::uint16_t(34), std::uint16_t(38)}) {
        waitForRest();
        m_painter.setCursor(glyph, 0xff0000);
        EXPECT_NE(look(m_onLeft), nothing);
        EXPECT_EQ(look(m_onRight), nothing);
    }
}

TEST_F(X11Quiet, monitorThatMovesAfterTheRest_isFollowed)
{
    m_painter.paintNoise({0, 0, 640, 400}, 3);
    waitForRest();
    auto monitors = twoMonitors;
    monitors[1].pixels = right.translated(-100, 50);
    m_desktop.setMonitors(monitors);
    EXPECT_FALSE(look(m_onRight));
    EXPECT_EQ(look(m_onRight), nothing);
}

TEST_F(X11Quiet, pointerAtRest_isAskedForEveryTenSecondsAllTheSame)
{
    waitForRest();
    m_now += 9'999ms;
    EXPECT_EQ(requestsFor(m_onLeft), 0u);
    m_now += 1ms;
    EXPECT_EQ(requestsFor(m_onLeft), 1u);
    EXPECT_EQ(requestsFor(m_onLeft), 0u);
}

TEST_F(X11Quiet, serverThatDies_isNoticedByTheNextPicture)
{
    waitForRest();
    m_desktop.server().kill();
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto taken = m_onLeft.kept->capture();
        ASSERT_FALSE(taken);
        EXPECT_TRUE(isFault(taken.error(), Fault::NoXDisplay));
    }
}

TEST_F(X11Quiet, serverThatFreezes_isNoticedWhenItIsAskedAgain)
{
    waitForRest();
    m_desktop.server().freeze();
    EXPECT_TRUE(m_onLeft.kept->capture());
    m_now += X11Cursor::longestTrust;
    const auto taken = m_onLeft.kept->capture();
    m_desktop.server().thaw();
    ASSERT_FALSE(taken);
    EXPECT_TRUE(isFault(taken.error(), Fault::TimedOut)) << taken.error().localizedDescription.toStdString();
}

} // namespace
