#include "base/Op.h"

#include "base/Task.h"
#include "base/TaskSlot.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

#include <optional>

using namespace ostrel;

namespace {

/// An operation whose answer is in the test's hands.
struct Pending {
    std::optional<Op<int>::Resolve> resolve;
    int cancelCount = 0;

    Op<int> op(std::stop_token stop)
    {
        return {std::move(stop), [this](Op<int>::Resolve answer) {
                    resolve = std::move(answer);
                    return [this] { ++cancelCount; };
                }};
    }
};

struct Outcome {
    bool ended = false;
    std::optional<int> answer;
};

Task<> await(Pending *pending, Outcome *outcome, std::stop_token stop)
{
    outcome->answer = co_await pending->op(std::move(stop));
    outcome->ended = true;
}

TEST(Op, answered_resumesInlineWithTheAnswer)
{
    Pending pending;
    Outcome outcome;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) { return await(&pending, &outcome, stop); });
    EXPECT_FALSE(outcome.ended);
    (*pending.resolve)(42);
    EXPECT_TRUE(outcome.ended);
    EXPECT_EQ(outcome.answer, 42);
    EXPECT_EQ(pending.cancelCount, 0);
}

TEST(Op, answeredAtOnce_neverSuspends)
{
    std::optional<int> answer;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> {
        answer = co_await Op<int>(stop, [](auto resolve) {
            resolve(7);
            return Op<int>::Cancel();
        });
    });
    EXPECT_EQ(answer, 7);
}

TEST(Op, stopped_resumesInlineWithNothingAndWithdraws)
{
    Pending pending;
    Outcome outcome;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) { return await(&pending, &outcome, stop); });
    slot.cancel();
    EXPECT_TRUE(outcome.ended);
    EXPECT_EQ(outcome.answer, std::nullopt);
    EXPECT_EQ(pending.cancelCount, 1);
}

TEST(Op, stoppedBefore_isNeverStarted)
{
    std::stop_source stop;
    stop.request_stop();
    Pending pending;
    Outcome outcome;
    TaskSlot slot;
    slot.start([&](std::stop_token) { return await(&pending, &outcome, stop.get_token()); });
    EXPECT_TRUE(outcome.ended);
    EXPECT_FALSE(pending.resolve.has_value());
}

TEST(Op, answeredLateOrTwice_isIgnored)
{
    Pending pending;
    Outcome outcome;
    {
        TaskSlot slot;
        slot.start([&](std::stop_token stop) { return await(&pending, &outcome, stop); });
        slot.cancel();
        (*pending.resolve)(1);
        EXPECT_EQ(outcome.answer, std::nullopt);
        slot.start([&](std::stop_token stop) { return await(&pending, &outcome, stop); });
        (*pending.resolve)(2);
        (*pending.resolve)(3);
    }
    (*pending.resolve)(4); // whoever awaited it is gone
    EXPECT_EQ(outcome.answer, 2);
}

TEST(Op, stopAfterTheAnswer_changesNothing)
{
    Pending pending;
    Outcome outcome;
    std::stop_source stop;
    TaskSlot slot;
    slot.start([&](std::stop_token) { return await(&pending, &outcome, stop.get_token()); });
    (*pending.resolve)(5);
    stop.request_stop();
    EXPECT_EQ(outcome.answer, 5);
    EXPECT_EQ(pending.cancelCount, 0);
}

} // namespace
