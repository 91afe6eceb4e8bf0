#include "base/Clock.h"
#include "base/TaskScope.h"
#include "base/TaskSlot.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

class Tasks : public testing::Test
{
protected:
    ManualClock m_clock{[] { settleEvents(); }};
};

TEST_F(Tasks, slotStartedAgain_firstTaskHasEndedBeforeTheSecondBegins)
{
    QString events;
    TaskSlot slot;
    const auto start = [&](QChar name) {
        slot.start([&, name](std::stop_token stop) -> Task<> {
            events += name;
            co_await m_clock.sleepFor(1s, stop);
            events += name.toUpper();
        });
    };
    start(u'a');
    start(u'b');
    EXPECT_EQ(events, QStringLiteral("aAb"));
    m_clock.advance(1s);
    EXPECT_EQ(events, QStringLiteral("aAbB"));
    EXPECT_FALSE(slot.isRunning());
}

TEST_F(Tasks, slotDestroyed_taskHasUnwound)
{
    bool unwound = false;
    {
        TaskSlot slot;
        slot.start([&](std::stop_token stop) -> Task<> {
            co_await m_clock.sleepFor(1s, stop);
            unwound = true;
        });
        EXPECT_TRUE(slot.isRunning());
    }
    EXPECT_TRUE(unwound);
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

TEST_F(Tasks, slotCancelledFromInside_onlyAsks)
{
    TaskSlot slot;
    bool wentOn = false;
    slot.start([&](std::stop_token stop) -> Task<> {
        co_await m_clock.sleepFor(1ms, stop);
        slot.cancel();
        wentOn = stop.stop_requested();
    });
    m_clock.advance(1ms);
    EXPECT_TRUE(wentOn);
    EXPECT_FALSE(slot.isRunning());
}

TEST_F(Tasks, slotRestartedFromInside_runsTheNext)
{
    TaskSlot slot;
    int runs = 0;
    std::function<void()> start = [&] {
        slot.start([&](std::stop_token stop) -> Task<> {
            const bool elapsed = co_await m_clock.sleepFor(1ms, stop);
            if (elapsed && ++runs < 3)
                start();
        });
    };
    start();
    m_clock.advance(10ms);
    EXPECT_EQ(runs, 3);
}

TEST_F(Tasks, shieldedSection_outlivesTheCancellation)
{
    TaskSlot slot;
    bool saved = false;
    slot.start([&](std::stop_token) -> Task<> {
        co_await m_clock.sleepFor(1s, std::stop_token()); // a token that nobody stops
        saved = true;
    });
    slot.cancel();
    EXPECT_FALSE(saved);
    m_clock.advance(1s);
    EXPECT_TRUE(saved);
}

TEST_F(Tasks, taskThatThrows_isLoggedAndEnds)
{
    TaskSlot slot;
    testing::internal::CaptureStderr();
    slot.start([&](std::stop_token stop) -> Task<> {
        co_await m_clock.sleepFor(1ms, stop);
        throw std::runtime_error("boom");
    });
    m_clock.advance(1ms);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("a task failed: boom"));
    EXPECT_FALSE(slot.isRunning());
}

TEST_F(Tasks, scopeDestroyed_allTasksHaveUnwound)
{
    int unwound = 0;
    {
        TaskScope scope;
        for (int i = 0; i < 3; ++i)
            scope.spawn([&](std::stop_token stop) -> Task<> {
                co_await m_clock.sleepFor(1s, stop);
                ++unwound;
            });
        EXPECT_EQ(scope.liveCount(), 3);
    }
    EXPECT_EQ(unwound, 3);
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

TEST_F(Tasks, scopeCancelled_laterTasksRun)
{
    TaskScope scope;
    bool first = false;
    bool second = false;
    scope.spawn([&](std::stop_token stop) -> Task<> { first = co_await m_clock.sleepFor(1s, stop); });
    scope.cancelAll();
    EXPECT_EQ(scope.liveCount(), 0);
    scope.spawn([&](std::stop_token stop) -> Task<> { second = co_await m_clock.sleepFor(1s, stop); });
    m_clock.advance(1s);
    EXPECT_FALSE(first);
    EXPECT_TRUE(second);
}

} // namespace
