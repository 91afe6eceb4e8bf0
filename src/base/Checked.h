#pragma once

#include "base/Fatal.h"

#include <QtGlobal>
#include <cmath>

/// Arithmetic of counters, indexes and times: an overflow ends the process, it never wraps.
namespace ostrel {

constexpr qint64 checkedAdd(qint64 a, qint64 b)
{
    qint64 sum = 0;
    if (__builtin_add_overflow(a, b, &sum))
        fatal("integer overflow in an addition");
    return sum;
}

constexpr qint64 checkedSubtract(qint64 a, qint64 b)
{
    qint64 difference = 0;
    if (__builtin_sub_overflow(a, b, &difference))
        fatal("integer overflow in a subtraction");
    return difference;
}

constexpr qint64 checkedMultiply(qint64 a, qint64 b)
{
    qint64 product = 0;
    if (__builtin_mul_overflow(a, b, &product))
        fatal("integer overflow in a multiplication");
    return product;
}

constexpr void checkedIncrement(qint64 &counter)
{
    counter = checkedAdd(counter, 1);
}

/// The integer part of a number; one that is not finite or does not fit is fatal.
inline qint64 checkedTruncate(double value)
{
    // 2^63 itself is the first value above the range and is exact as a double; the negated comparison also
    // catches NaN.
    constexpr double limit = 9223372036854775808.0;
    if (!(value >= -limit && value < limit))
        fatal("a number does not fit into 64 bits");
    return qint64(std::trunc(value));
}

} // namespace ostrel
