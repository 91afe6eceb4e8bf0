#include "capture/YcbcrKernel.h"

#include <array>
#include <cstddef>
#include <cstring>

// This file is compiled once for every instruction set that the processor may have; `foreach_target` includes it again
// and again, and the last section chooses among the results at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "capture/YcbcrKernel.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace ostrel {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

constexpr std::size_t bytesPerPixel = 4;

// Of two vectors of pixels the colours fill one.
using Pixels = hn::CappedTag<std::uint32_t, ycbcrColumns / 2>;
using Sums = hn::Rebind<std::int32_t, Pixels>;
using Channels = hn::Repartition<std::int16_t, Pixels>;
using PixelPairs = hn::Repartition<std::uint64_t, Pixels>;
using Bytes = hn::Rebind<std::uint8_t, Pixels>;

/// The library's factors, in 65536ths. They are subtracted, because 32768 is no number of 16 bits, but -32768 is.
struct Weights {
    std::int16_t blue;
    std::int16_t green;
    std::int16_t red;
};
/// Of green there are 65536 more, which are the pixel's green itself.
constexpr Weights lumaWeights{.blue = -7471, .green = 27066, .red = -19595};
constexpr Weights bluenessWeights{.blue = -32768, .green = 21709, .red = 11059};
constexpr Weights rednessWeights{.blue = 5329, .green = 27439, .red = -32768};
constexpr std::int32_t lumaRounding = 32768;
/// Half of the range, and the library rounds halves down here.
constexpr std::int32_t colourMiddle = 128 * 65536 + 32767;

struct Converted {
    hn::VFromD<Pixels> luma;
    hn::VFromD<Pixels> colours; ///< blueness in the lower half, redness in the upper
};

/// start - blue * b - green * g - red * r
/// @param blueAndRed side by side, as many pixels as a vector has lanes
HWY_INLINE hn::VFromD<Sums> weighted(std::int32_t start, hn::VFromD<Channels> blueAndRed, hn::VFromD<Channels> green,
                                     const Weights &weights)
{
    const Sums sums;
    const auto pair = [](std::int16_t lower, std::int16_t upper) {
        return hn::BitCast(Channels(), hn::Set(Sums(), std::int32_t(upper) * 65536 + std::uint16_t(lower)));
    };
    auto rest = hn::Zero(sums); // used by other instruction sets than x86
    auto products =
        hn::ReorderWidenMulAccumulate(sums, blueAndRed, pair(weights.blue, weights.red), hn::Zero(sums), rest);
    products = hn::ReorderWidenMulAccumulate(sums, green, pair(weights.green, 0), products, rest);
    return hn::Sub(hn::Set(sums, start), hn::RearrangeToOddPlusEven(products, rest));
}

/// As many pixels as a vector has lanes.
HWY_INLINE Converted convert(const std::uint8_t *pixels)
{
    const Pixels tag;
    const auto values = hn::BitCast(tag, hn::LoadU(hn::Repartition<std::uint8_t, Pixels>(), pixels));
    const auto green = hn::And(hn::ShiftRight<8>(values), hn::Set(tag, 0xff));
    const auto blueAndRed = hn::BitCast(Channels(), hn::And(values, hn::Set(tag, 0x00ff'00ff)));
    const auto greenAlone = hn::BitCast(Channels(), green);
    const auto luma = hn::ShiftRight<16>(weighted(lumaRounding, blueAndRed, greenAlone, lumaWeights));
    const auto blueness = weighted(colourMiddle, blueAndRed, greenAlone, bluenessWeights);
    const auto redness = weighted(colourMiddle, blueAndRed, greenAlone, rednessWeights);
    return {.luma = hn::Add(hn::BitCast(tag, luma), green),
            .colours = hn::Or(hn::ShiftRight<16>(hn::BitCast(tag, blueness)),
                              hn::And(hn::BitCast(tag, redness), hn::Set(tag, 0xffff'0000)))};
}

/// Converts pixels above others. @return in every second lane the sums of the colours of two above two
HWY_INLINE hn::VFromD<Pixels> convertBoth(const std::uint8_t *upper, const std::uint8_t *lower, std::uint8_t *upperLuma,
                                          std::uint8_t *lowerLuma)
{
    const Converted above = convert(upper);
    const Converted below = convert(lower);
    hn::StoreU(hn::TruncateTo(Bytes(), above.luma), Bytes(), upperLuma);
    hn::StoreU(hn::TruncateTo(Bytes(), below.luma), Bytes(), lowerLuma);
    const auto sums = hn::Add(above.colours, below.colours);
    return hn::Add(sums, hn::BitCast(Pixels(), hn::ShiftRight<32>(hn::BitCast(PixelPairs(), sums))));
}

HWY_INLINE void prefetch(const RowPair &rows, std::size_t begin, std::size_t end)
{
    constexpr std::size_t cacheLine = 64;
    for (std::size_t i = begin; i < end; i += cacheLine) {
        hwy::Prefetch(rows.upper + i);
        hwy::Prefetch(rows.lower + i);
    }
}

/// @return how many pixels were converted: as many of them as fill two vectors, and two again
HWY_INLINE std::size_t convertVectors(const RowPair &rows, const RowPair &next, std::size_t count, const YcbcrRows &to)
{
    const Pixels tag;
    const std::size_t lanes = hn::Lanes(tag);
    const std::size_t vectorBytes = lanes * bytesPerPixel;
    // The library rounds halves down and up in turn, so that a picture gets neither paler nor stronger.
    const auto rounding = hn::OddEven(hn::Set(tag, 0x0002'0002), hn::Set(tag, 0x0001'0001));
    std::size_t x = 0;
    for (; x + 2 * lanes <= count; x += 2 * lanes) {
        const std::size_t at = x * bytesPerPixel;
        prefetch(next, at, at + 2 * vectorBytes);
        const auto left = convertBoth(rows.upper + at, rows.lower + at, to.upperLuma + x, to.lowerLuma + x);
        const auto right = convertBoth(rows.upper + at + vectorBytes, rows.lower + at + vectorBytes,
                                       to.upperLuma + x + lanes, to.lowerLuma + x + lanes);
        const auto averages =
            hn::And(hn::ShiftRight<2>(hn::Add(hn::ConcatEven(tag, right, left), rounding)), hn::Set(tag, 0x00ff'00ff));
        const auto blueness = hn::And(averages, hn::Set(tag, 0xff));
        hn::StoreU(hn::TruncateTo(Bytes(), blueness), Bytes(), to.blueness + x / 2);
        hn::StoreU(hn::TruncateTo(Bytes(), hn::ShiftRight<16>(averages)), Bytes(), to.redness + x / 2);
    }
    return x;
}

using RowEnd = std::array<std::uint8_t, 2 * std::size_t(ycbcrColumns) * bytesPerPixel>;

/// The pixels from the `first`, with the last one repeated.
HWY_INLINE RowEnd endOfRow(const std::uint8_t *row, std::size_t first, std::size_t width)
{
    RowEnd end;
    std::memcpy(end.data(), row + first * bytesPerPixel, (width - first) * bytesPerPixel);
    for (std::size_t x = (width - first) * bytesPerPixel; x < end.size(); x += bytesPerPixel)
        std::memcpy(end.data() + x, row + (width - 1) * bytesPerPixel, bytesPerPixel);
    return end;
}

void convertRows(const RowPair &rows, const RowPair &next, int width, const YcbcrRows &to)
{
    const std::size_t done = convertVectors(rows, next, std::size_t(width), to);
    const std::size_t rest = std::size_t(paddedToYcbcrColumns(width)) - done;
    if (rest == 0)
        return;
    const RowEnd upper = endOfRow(rows.upper, done, std::size_t(width));
    const RowEnd lower = endOfRow(rows.lower, done, std::size_t(width));
    const RowPair ends{.upper = upper.data(), .lower = lower.data()};
    convertVectors(ends, ends, rest,
                   {.upperLuma = to.upperLuma + done,
                    .lowerLuma = to.lowerLuma + done,
                    .blueness = to.blueness + done / 2,
                    .redness = to.redness + done / 2});
}

} // namespace HWY_NAMESPACE
} // namespace ostrel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ostrel {

HWY_EXPORT(convertRows);

void convertToYcbcr(const RowPair &rows, const RowPair &next, int width, const YcbcrRows &to)
{
    HWY_DYNAMIC_DISPATCH(convertRows)(rows, next, width, to);
}

} // namespace ostrel
#endif
