#include "base/AsyncLock.h"

#include "base/TaskScope.h"
#include "base/TaskSlot.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class Lock : public testing::Test
{
protected:
    Task<> hold(QChar name, std::stop_token stop)
    {
        const auto guard = co_await m_lock.acquire(stop);
        if (!guard) {
            m_events += QStringLiteral("-");
            co_return;
        }
        m_events += name;
        co_await m_clock.sleepFor(1s, std::stop_token());
        m_events += name.toUpper();
    }

    ManualClock m_clock{[] { settleEvents(); }};
    AsyncLock m_lock;
    QString m_events;
    TaskScope m_scope;
};

TEST_F(Lock, several_passOneAtATimeInTheOrderOfAsking)
{
    for (const char16_t name : {u'a', u'b', u'c'})
        m_scope.spawn([this, name](std::stop_token stop) { return hold(name, stop); });
    EXPECT_EQ(m_events, QStringLiteral("a"));
    m_clock.advance(3s);
    EXPECT_EQ(m_events, QStringLiteral("aAbBcC"));
    EXPECT_FALSE(m_lock.isHeld());
}

TEST_F(Lock, waiterStopped_leavesItsPlaceToTheNext)
{
    TaskSlot second;
    m_scope.spawn([this](std::stop_token stop) { return hold(u'a', stop); });
    second.start([this](std::stop_token stop) { return hold(u'b', stop); });
    m_scope.spawn([this](std::stop_token stop) { return hold(u'c', stop); });
    second.cancel();
    EXPECT_EQ(m_events, QStringLiteral("a-"));
    m_clock.advance(2s);
    EXPECT_EQ(m_events, QStringLiteral("a-AcC"));
}

TEST_F(Lock, stoppedBefore_getsNothingEvenWhenFree)
{
    std::stop_source stop;
    stop.request_stop();
    m_scope.spawn([&](std::stop_token) { return hold(u'a', stop.get_token()); });
    EXPECT_EQ(m_events, QStringLiteral("-"));
    EXPECT_FALSE(m_lock.isHeld());
}

TEST_F(Lock, guardReplaced_givesBackWhatItHeld)
{
    AsyncLock other;
    m_scope.spawn([&](std::stop_token stop) -> Task<> {
        auto first = co_await m_lock.acquire(stop);
        auto second = co_await other.acquire(stop);
        *first = std::move(*second);
        EXPECT_FALSE(m_lock.isHeld());
        EXPECT_TRUE(other.isHeld());
    });
    EXPECT_FALSE(other.isHeld());
}

} // namespace
