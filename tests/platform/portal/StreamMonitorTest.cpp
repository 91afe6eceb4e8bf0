#include "platform/portal/StreamMonitor.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

constexpr QRect left(0, 0, 1920, 1080);
constexpr QRect right(1920, 0, 1920, 1080);
constexpr QRect upright(3840, 0, 1080, 1920);

using Monitors = QList<QRect>;

Monitors monitorsOf(QSize picture, const Monitors &monitors, const StreamMonitorFacts &facts = {})
{
    return monitorsOfStream(facts, picture, monitors);
}

TEST(StreamMonitor, onlyMonitor_isTheOneWhateverTheScale)
{
    EXPECT_EQ(monitorsOf({1920, 1080}, {left}), Monitors{left});
    EXPECT_EQ(monitorsOf({3840, 2160}, {left}), Monitors{left});
}

TEST(StreamMonitor, onlyMonitorOfAnotherShape_isNotTheOne)
{
    EXPECT_EQ(monitorsOf({1920, 1200}, {left}), Monitors()) << "it has just been changed";
}

TEST(StreamMonitor, fractionalScale_mayHaveRoundedTheLogicalSize)
{
    const QRect rounded(0, 0, 1463, 914);
    EXPECT_EQ(monitorsOf({2560, 1600}, {rounded}), Monitors{rounded});
    EXPECT_EQ(monitorsOf({1600, 2560}, {rounded}), Monitors());
}

TEST(StreamMonitor, toldPlace_decidesAmongLikeMonitors)
{
    EXPECT_EQ(monitorsOf({1920, 1080}, {left, right}, {.corner = QPoint(1920, 0), .logicalSize = {}}), Monitors{right});
}

TEST(StreamMonitor, toldPlaceWithoutMonitorOrWithOneOfAnotherShape_tellsNone)
{
    EXPECT_EQ(monitorsOf({1920, 1080}, {left}, {.corner = QPoint(100, 0), .logicalSize = {}}), Monitors());
    EXPECT_EQ(monitorsOf({1920, 1080}, {left, upright}, {.corner = upright.topLeft(), .logicalSize = {}}), Monitors());
}

TEST(StreamMonitor, shape_leavesThoseThatHaveIt)
{
    EXPECT_EQ(monitorsOf({1080, 1920}, {left, right, upright}), Monitors{upright});
    EXPECT_EQ(monitorsOf({1920, 1080}, {left, right, upright}), (Monitors{left, right}));
}

TEST(StreamMonitor, logicalSize_decidesAmongMonitorsOfOneShape)
{
    const QRect small(1920, 0, 960, 540);
    EXPECT_EQ(monitorsOf({1920, 1080}, {left, small}), (Monitors{left, small}));
    EXPECT_EQ(monitorsOf({1920, 1080}, {left, small}, {.corner = {}, .logicalSize = QSize(960, 540)}), Monitors{small});
}

TEST(StreamMonitor, monitorsThatShowTheSame_areOne)
{
    EXPECT_EQ(monitorsOf({1920, 1080}, {left, left}), Monitors{left});
}

TEST(StreamMonitor, noMonitorOrAnEmptyOne_tellsNone)
{
    EXPECT_EQ(monitorsOf({1920, 1080}, {}), Monitors());
    EXPECT_EQ(monitorsOf({1920, 1080}, {QRect()}), Monitors());
}

} // namespace
