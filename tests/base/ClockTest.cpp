#include "base/Clock.h"

#include "base/TaskSlot.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <QCoreApplication>
#include <QDateTime>

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

TEST(ManualClock, sixtySecondsOfPolling_passInExactSteps)
{
    ManualClock clock([] { settleEvents(); });
    int polls = 0;
    TaskSlot poll;
    poll.start([&](std::stop_token stop) -> Task<> {
        do
            ++polls;
        while (co_await clock.sleepFor(1500ms, stop));
    });
    clock.advance(1499ms);
    EXPECT_EQ(polls, 1);
    clock.advance(1ms);
    EXPECT_EQ(polls, 2);
    const qint64 before = clock.nowMs();
    clock.advance(60s);
    EXPECT_EQ(polls, 42);
    EXPECT_EQ(clock.nowMs(), before + 60'000);
}

TEST(ManualClock, timersOfOneMoment_fireInTheOrderOfScheduling)
{
    ManualClock clock([] {});
    QString order;
    clock.schedule(2ms, [&] { order += QLatin1Char('b'); });
    clock.schedule(1ms, [&] { order += QLatin1Char('a'); });
    clock.schedule(2ms, [&] { order += QLatin1Char('c'); });
    clock.advance(2ms);
    EXPECT_EQ(order, QStringLiteral("abc"));
}

TEST(ManualClock, wallClockMoved_timersDoNotNotice)
{
    ManualClock clock([] {});
    bool fired = false;
    clock.schedule(10ms, [&] { fired = true; });
    clock.setNowMs(5);
    clock.advance(9ms);
    EXPECT_FALSE(fired);
    clock.advance(1ms);
    EXPECT_TRUE(fired);
    EXPECT_EQ(clock.nowMs(), 15);
}

TEST(Clock, sleep_stopped_endsAtOnceAndLeavesNoTimer)
{
    ManualClock clock([] { settleEvents(); });
    std::optional<bool> elapsed;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> { elapsed = co_await clock.sleepFor(1h, stop); });
    EXPECT_EQ(clock.pendingTimerCount(), 1);
    slot.cancel();
    EXPECT_EQ(elapsed, false);
    EXPECT_EQ(clock.pendingTimerCount(), 0);
}

TEST(SystemClock, now_isTheWallClock)
{
    const SystemClock clock;
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    const qint64 now = clock.nowMs();
    EXPECT_LE(before, now);
    EXPECT_LE(now, QDateTime::currentMSecsSinceEpoch());
}

TEST(SystemClock, timerBeyondAllRange_doesNotFireAtOnce)
{
    SystemClock clock;
    bool fired = false;
    const auto withdraw = clock.schedule(std::chrono::milliseconds::max(), [&] { fired = true; });
    bool marker = false;
    clock.schedule(1ms, [&] { marker = true; });
    while (!marker)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    EXPECT_FALSE(fired);
    withdraw();
}

TEST(SystemClock, timers_fireInOrder_andWithdrawnOnesNever)
{
    SystemClock clock;
    QString order;
    const auto withdraw = clock.schedule(1ms, [&] { order += QLatin1Char('x'); });
    clock.schedule(20ms, [&] { order += QLatin1Char('b'); });
    clock.schedule(2ms, [&] { order += QLatin1Char('a'); });
    withdraw();
    while (order.size() < 2)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    EXPECT_EQ(order, QStringLiteral("ab"));
    withdraw(); // harmless by now
}

} // namespace
