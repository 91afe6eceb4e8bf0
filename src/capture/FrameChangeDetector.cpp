#include "capture/FrameChangeDetector.h"

#include <algorithm>
#include <cstddef>

namespace ostrel {

namespace {

constexpr std::size_t bytesPerPixel = 4;
constexpr std::uint8_t meaningfulDifference = 3;
// No early exit within a block: that lets the compiler turn the loop into vector instructions.
constexpr std::size_t blockBytes = 64 * bytesPerPixel;

std::uint8_t largestDifference(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b)
{
    std::uint8_t largest = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const std::uint8_t difference = a[i] > b[i] ? a[i] - b[i] : b[i] - a[i];
        const bool isAlpha = i % bytesPerPixel == bytesPerPixel - 1;
        largest = std::max<std::uint8_t>(largest, isAlpha ? 0 : difference);
    }
    return largest;
}

} // namespace

bool FrameChangeDetector::hasMeaningfulChange(std::span<const std::uint8_t> current,
                                              std::optional<std::span<const std::uint8_t>> previous)
{
    if (!previous || previous->size() != current.size())
        return true;
    // A pixel counts when all of its colours are there; its alpha may be missing at the end.
    const std::size_t wholePixels = (current.size() + 1) / bytesPerPixel;
    const std::size_t comparable = std::min(current.size(), wholePixels * bytesPerPixel);
    for (std::size_t i = 0; i < comparable; i += blockBytes) {
        const std::size_t length = std::min(blockBytes, comparable - i);
        if (largestDifference(current.subspan(i, length), previous->subspan(i, length)) >= meaningfulDifference)
            return true;
    }
    return false;
}

} // namespace ostrel
