#include "observer/Base64.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

// This file is compiled once for every instruction set that the processor may have; `foreach_target` includes it again
// and again, and the last section chooses among the results at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "observer/Base64.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace ostrel {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using Bytes = hn::FixedTag<std::uint8_t, 16>;
using Halves = hn::Repartition<std::uint16_t, Bytes>;
using Words = hn::Repartition<std::uint32_t, Bytes>;

/// Spreads 12 bytes to 16 values of 6 bits.
HWY_INLINE hn::Vec<Bytes> splitIntoSixes(hn::Vec<Bytes> bytes)
{
    // Each group of three bytes a, b, c becomes the four bytes b, a, c, b: every 6 bits then lie within 16 of them.
    alignas(16) static constexpr std::uint8_t order[] = {1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10};
    const auto spread = hn::BitCast(Words(), hn::TableLookupBytes(bytes, hn::Load(Bytes(), order)));
    // One multiplication shifts both values of a group to their places: the high half of a product shifts to the right,
    // the low half to the left.
    const auto first = hn::And(spread, hn::Set(Words(), 0x0fc0fc00));
    const auto second = hn::And(spread, hn::Set(Words(), 0x003f03f0));
    const auto right = hn::MulHigh(hn::BitCast(Halves(), first), hn::BitCast(Halves(), hn::Set(Words(), 0x04000040)));
    const auto left = hn::Mul(hn::BitCast(Halves(), second), hn::BitCast(Halves(), hn::Set(Words(), 0x01000010)));
    return hn::BitCast(Bytes(), hn::Or(right, left));
}

/// The characters of 16 values.
HWY_INLINE hn::Vec<Bytes> toCharacters(hn::Vec<Bytes> sixes)
{
    // The alphabet is five runs; by which run a value is in, it says what is added to the value. 0 stands for a to z,
    // 1 to 10 for each digit, 11 for '+', 12 for '/', 13 for A to Z.
    constexpr auto fromDigit = std::uint8_t('0' - 52);
    alignas(16) static constexpr std::uint8_t offsets[] = {'a' - 26,
                                                           fromDigit,
                                                           fromDigit,
                                                           fromDigit,
                                                           fromDigit,
                                                           fromDigit,
                                                           fromDigit,
                                                           fromDigit,
                                                           fromDigit,
                                                           fromDigit,
                                                           fromDigit,
                                                           std::uint8_t('+' - 62),
                                                           std::uint8_t('/' - 63),
                                                           'A',
                                                           0,
                                                           0};
    const auto isCapital = hn::Lt(sixes, hn::Set(Bytes(), 26));
    const auto run = hn::IfThenElse(isCapital, hn::Set(Bytes(), 13), hn::SaturatedSub(sixes, hn::Set(Bytes(), 51)));
    return hn::Add(sixes, hn::TableLookupBytes(hn::Load(Bytes(), offsets), run));
}

/// Encodes whole blocks, each read as 16 bytes of which 12 count. @return how many bytes were encoded
std::size_t encodeBlocks(const std::uint8_t *bytes, std::size_t count, std::uint8_t *characters)
{
    // A machine that only imitates vectors is sixteen times faster with Qt's loop, which encodes what we leave.
    if constexpr (HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR)
        return 0;
    std::size_t done = 0;
    for (; done + 16 <= count; done += 12) {
        hn::StoreU(toCharacters(splitIntoSixes(hn::LoadU(Bytes(), bytes + done))), Bytes(), characters);
        characters += 16;
    }
    return done;
}

} // namespace HWY_NAMESPACE
} // namespace ostrel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ostrel {

HWY_EXPORT(encodeBlocks);

void appendBase64(QByteArray &text, QByteArrayView bytes)
{
    const qsizetype begin = text.size();
    text.resize(begin + base64Size(bytes.size()));
    const std::size_t done = HWY_DYNAMIC_DISPATCH(encodeBlocks)(reinterpret_cast<const std::uint8_t *>(bytes.data()),
                                                                std::size_t(bytes.size()),
                                                                reinterpret_cast<std::uint8_t *>(text.data() + begin));
    const auto rest = bytes.sliced(qsizetype(done));
    const QByteArray tail = QByteArray::fromRawData(rest.data(), rest.size()).toBase64();
    std::copy(tail.begin(), tail.end(), text.begin() + begin + base64Size(qsizetype(done)));
}

} // namespace ostrel
#endif
