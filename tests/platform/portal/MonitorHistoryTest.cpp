#include "platform/portal/MonitorHistory.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QString a = QStringLiteral("A");
const QString b = QStringLiteral("B");
const QString c = QStringLiteral("C");

/// A session that has begun with two monitors.
MonitorHistory ofTwo()
{
    MonitorHistory history;
    history.begin({a, b});
    return history;
}

TEST(MonitorHistory, notBegun_hasLostNothing)
{
    MonitorHistory history;
    history.note(10s, {});
    EXPECT_FALSE(history.isBegun());
    EXPECT_FALSE(history.hasLost(0s, 20s));
}

TEST(MonitorHistory, monitorLess_isLostWithinTheTimeOnly)
{
    MonitorHistory history = ofTwo();
    history.note(10s, {a});
    EXPECT_TRUE(history.hasLost(10s, 10s));
    EXPECT_FALSE(history.hasLost(11s, 20s));
    EXPECT_FALSE(history.hasLost(0s, 9s));
}

TEST(MonitorHistory, monitorMore_isAChangeAndNoLoss)
{
    MonitorHistory history = ofTwo();
    history.note(10s, {a, b, c});
    EXPECT_TRUE(history.hasChanged(10s, 10s));
    EXPECT_FALSE(history.hasChanged(11s, 20s));
    EXPECT_FALSE(history.hasLost(0s, 20s));
}

TEST(MonitorHistory, anotherInItsPlace_isALoss)
{
    MonitorHistory history = ofTwo();
    history.note(10s, {a, c});
    EXPECT_TRUE(history.hasLost(0s, 20s));
}

TEST(MonitorHistory, monitorThatIsBack_wasLostAllTheSame)
{
    MonitorHistory history = ofTwo();
    history.note(10s, {a});
    history.note(11s, {a, b});
    EXPECT_TRUE(history.hasLost(10s, 12s));
}

TEST(MonitorHistory, monitorThatWentBefore_isNotLostLater)
{
    MonitorHistory history = ofTwo();
    history.note(10s, {a});
    history.note(20s, {a, c});
    EXPECT_FALSE(history.hasLost(15s, 25s));
    history.note(30s, {c});
    EXPECT_TRUE(history.hasLost(25s, 35s));
}

TEST(MonitorHistory, monitorThatCameLaterOrCameBack_isNoLossWhenItGoes)
{
    MonitorHistory history = ofTwo();
    history.note(10s, {a});
    history.note(11s, {a, b, c});
    history.note(20s, {a});
    EXPECT_FALSE(history.hasLost(15s, 25s));
}

TEST(MonitorHistory, changesThatWereOutlived_countAsIfTheyHadBeenAskedFor)
{
    MonitorHistory history = ofTwo();
    history.note(10s, {a});
    history.outlive(15s);
    EXPECT_FALSE(history.hasChanged(0s, 20s));
    history.note(20s, {a, c});
    EXPECT_FALSE(history.hasLost(0s, 25s));
}

} // namespace
