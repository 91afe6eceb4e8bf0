#include "base/Checked.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

#include <limits>

using namespace ostrel;

namespace {

constexpr qint64 greatest = std::numeric_limits<qint64>::max();
constexpr qint64 least = std::numeric_limits<qint64>::min();

TEST(Checked, results_withinRange_areExact)
{
    EXPECT_EQ(checkedAdd(greatest - 1, 1), greatest);
    EXPECT_EQ(checkedSubtract(least + 1, 1), least);
    EXPECT_EQ(checkedMultiply(greatest, -1), least + 1);
    EXPECT_EQ(checkedTruncate(1999.9), 1999);
    EXPECT_EQ(checkedTruncate(-0.9), 0);
    EXPECT_EQ(checkedTruncate(-9223372036854775808.0), least);
}

TEST(CheckedDeathTest, addition_beyondRange_isFatal)
{
    EXPECT_DEATH(checkedAdd(greatest, 1), "overflow in an addition");
    EXPECT_DEATH(checkedSubtract(least, 1), "overflow in a subtraction");
    EXPECT_DEATH(checkedMultiply(greatest, 2), "overflow in a multiplication");
}

TEST(CheckedDeathTest, counter_atItsGreatest_incrementIsFatal)
{
    qint64 counter = greatest;
    EXPECT_DEATH(checkedIncrement(counter), "overflow");
    EXPECT_EQ(counter, greatest);
}

TEST(CheckedDeathTest, truncation_notFiniteOrTooLarge_isFatal)
{
    EXPECT_DEATH(checkedTruncate(std::numeric_limits<double>::quiet_NaN()), "does not fit");
    EXPECT_DEATH(checkedTruncate(std::numeric_limits<double>::infinity()), "does not fit");
    EXPECT_DEATH(checkedTruncate(9223372036854775808.0), "does not fit");
}

} // namespace
