#include "platform/secretservice/DeadlineThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <thread>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// For jobs that are meant to come in time.
constexpr auto patience = 60s;
/// For jobs that hang: how long it takes doesn't matter, as they hang until the test lets them go.
constexpr auto impatience = 20ms;

/// Gives the thread a job that hangs, and gives it up. Tries again where the thread was too slow to begin with it.
void hang(DeadlineThread &thread, const std::function<void(std::stop_token)> &job)
{
    const auto begun = std::make_shared<std::atomic<bool>>(false);
    while (!*begun) {
        const auto answer = thread.call(impatience, [job, begun](std::stop_token givenUp) {
            *begun = true;
            job(std::move(givenUp));
            return 1;
        });
        EXPECT_EQ(answer, std::nullopt);
    }
}

TEST(DeadlineThread, job_runsOnTheThreadAndItsAnswerComesBack)
{
    DeadlineThread thread;
    const auto first = thread.call(patience, [](const std::stop_token &) { return std::this_thread::get_id(); });
    const auto second = thread.call(patience, [](const std::stop_token &) { return std::this_thread::get_id(); });
    ASSERT_TRUE(first.has_value());
    EXPECT_NE(*first, std::this_thread::get_id());
    EXPECT_EQ(first, second);
}

TEST(DeadlineThread, jobThatHangs_isGivenUpAndToldSo)
{
    std::latch release(1);
    std::latch ended(1);
    std::atomic<bool> knew = false;
    DeadlineThread thread;
    hang(thread, [&](const std::stop_token &givenUp) {
        release.wait();
        knew = givenUp.stop_requested();
        ended.count_down();
    });
    release.count_down();
    ended.wait();
    EXPECT_TRUE(knew);
}

TEST(DeadlineThread, callsWhileAJobIsOverdue_areAnsweredAtOnceAndNeverRun)
{
    std::latch release(1);
    DeadlineThread thread;
    hang(thread, [&](const std::stop_token &) { release.wait(); });
    // With this much patience, a call that waited would never end.
    for (int i = 0; i < 3; ++i) {
        const auto answer = thread.call(24h, [](const std::stop_token &) {
            ADD_FAILURE() << "it ran";
            return 2;
        });
        EXPECT_EQ(answer, std::nullopt);
    }
    release.count_down();
}

TEST(DeadlineThread, overdueJobThatReturns_opensTheThreadAgain)
{
    std::latch release(1);
    DeadlineThread thread;
    hang(thread, [&](const std::stop_token &) { release.wait(); });
    release.count_down();
    std::optional<int> answer;
    while (!answer)
        answer = thread.call(patience, [](const std::stop_token &) { return 2; });
    EXPECT_EQ(answer, 2);
}

TEST(DeadlineThread, jobGivenUpBeforeItBegan_neverBegins)
{
    std::latch begun(1);
    std::latch release(1);
    DeadlineThread thread;
    std::thread other([&] {
        const auto answer = thread.call(patience, [&](const std::stop_token &) {
            begun.count_down();
            release.wait();
            return 1;
        });
        EXPECT_EQ(answer, 1) << "the first one is in time";
    });
    begun.wait();
    EXPECT_EQ(thread.call(impatience,
                          [](const std::stop_token &) {
                              ADD_FAILURE() << "it ran";
                              return 2;
                          }),
              std::nullopt);
    release.count_down();
    other.join();
}

TEST(DeadlineThread, destructionWhileAJobHangs_leavesItBehind)
{
    const auto release = std::make_shared<std::latch>(1);
    const auto ended = std::make_shared<std::latch>(1);
    {
        DeadlineThread thread;
        hang(thread, [release, ended](const std::stop_token &) {
            release->wait();
            ended->count_down();
        });
    }
    release->count_down();
    ended->wait();
}

} // namespace
