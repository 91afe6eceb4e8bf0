#include "update/UpdateMemory.h"
#include "support/FakeUserDefaults.h"
#include "support/ManualClock.h"
#include "support/Printers.h"
#include "support/UpdateFeed.h"
#include "update/UpdateFault.h"
#include "update/UpdateSchedule.h"

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

constexpr qint64 noon = 1'700'000'000'000;

class UpdateMemoryTest : public testing::Test
{
protected:
    Result<> admit(qint64 sequence, qint64 nowMs = noon)
    {
        // A memory each: what holds has to hold over a restart.
        return UpdateMemory(m_defaults)
            .admit({.sequence = sequence, .expiresMs = noon + 1000, .releases = {}}, m_key.publicKey(), nowMs);
    }

    FakeUserDefaults m_defaults;
    SigningKey m_key;
};

TEST_F(UpdateMemoryTest, olderFeedThanBefore_isRefusedForItIsReplayed)
{
    EXPECT_TRUE(admit(5).has_value());
    EXPECT_TRUE(admit(5).has_value()) << "the same one again";
    const auto replayed = admit(4);
    ASSERT_FALSE(replayed.has_value());
    EXPECT_TRUE(isUpdateFault(replayed.error(), UpdateFault::FeedReplayed));
    EXPECT_TRUE(admit(6).has_value());
    EXPECT_FALSE(admit(5).has_value());
}

TEST_F(UpdateMemoryTest, feedOfAnotherKey_countsAnew)
{
    EXPECT_TRUE(admit(5).has_value());
    m_key = SigningKey();
    EXPECT_TRUE(admit(1).has_value());
}

TEST_F(UpdateMemoryTest, feedPastItsTime_isRefusedWithTheDay)
{
    EXPECT_TRUE(admit(1, noon + 999).has_value());
    const auto expired = admit(1, noon + 1000);
    ASSERT_FALSE(expired.has_value());
    EXPECT_TRUE(isUpdateFault(expired.error(), UpdateFault::FeedExpired));
    EXPECT_TRUE(expired.error().localizedDescription.contains(QStringLiteral("2023-11-14")));
}

TEST_F(UpdateMemoryTest, expiredFeed_leavesNoTrace)
{
    EXPECT_FALSE(admit(9, noon + 1000).has_value());
    EXPECT_TRUE(admit(1).has_value());
}

class UpdateScheduleTest : public testing::Test
{
protected:
    void start()
    {
        m_schedule.start([this] {
            ++m_checks;
            if (m_succeeds)
                m_schedule.noteCheck();
        });
    }

    ManualClock m_clock{[] { settleEvents(); }};
    FakeUserDefaults m_defaults;
    UpdateMemory m_memory{m_defaults};
    int m_checks = 0;
    bool m_succeeds = true;
    UpdateSchedule m_schedule{m_clock, m_memory};
};

TEST_F(UpdateScheduleTest, firstStart_checksAtOnceAndThenDaily)
{
    start();
    EXPECT_EQ(m_checks, 1);
    m_clock.advance(23h);
    EXPECT_EQ(m_checks, 1);
    m_clock.advance(1h);
    EXPECT_EQ(m_checks, 2);
    m_clock.advance(48h);
    EXPECT_EQ(m_checks, 4);
}

TEST_F(UpdateScheduleTest, restart_keepsTheDay)
{
    m_memory.setLastCheckMs(m_clock.nowMs() - std::chrono::milliseconds(20h).count());
    start();
    EXPECT_EQ(m_checks, 0);
    m_clock.advance(4h);
    EXPECT_EQ(m_checks, 1);
}

TEST_F(UpdateScheduleTest, clockThatWasSetBack_doesNotPutTheCheckOff)
{
    start();
    m_clock.setNowMs(m_clock.nowMs() - std::chrono::milliseconds(24h * 365).count());
    m_clock.advance(1h);
    EXPECT_EQ(m_checks, 2);
    m_clock.advance(23h);
    EXPECT_EQ(m_checks, 2) << "from then on daily again";
}

TEST_F(UpdateScheduleTest, timeAsleep_counts)
{
    start();
    m_clock.setNowMs(m_clock.nowMs() + std::chrono::milliseconds(30h).count());
    m_clock.advance(1h);
    EXPECT_EQ(m_checks, 2);
}

TEST_F(UpdateScheduleTest, checkThatFailed_isTriedAgainAfterAnHour)
{
    m_succeeds = false;
    start();
    m_clock.advance(3h);
    EXPECT_EQ(m_checks, 4);
}

} // namespace
