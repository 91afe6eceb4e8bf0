#pragma once

#include <algorithm>
#include <cstdint>

namespace ostrel {

/// The columns (or rows) of the picture that one column (or row) of the thumbnail stands for: begin <= i < end.
struct CellRange {
    std::int64_t begin = 0;
    std::int64_t end = 0;

    std::int64_t size() const { return end - begin; }
};

/// @param index which of the thumbnail's columns
/// @param count how many columns the thumbnail has
/// @param extent how many columns the picture has
constexpr CellRange cellRange(int index, int count, std::int64_t extent)
{
    const std::int64_t begin = index * extent / count;
    return {begin, std::max(begin + 1, (index + 1) * extent / count)};
}

/// The other way round: the columns (or rows) of the thumbnail that show any of the picture's columns (or rows)
/// begin <= i < end, which must not be empty.
constexpr CellRange cellsShowing(std::int64_t begin, std::int64_t end, int count, std::int64_t extent)
{
    const auto lastShowing = [=](std::int64_t index) { return ((index + 1) * count - 1) / extent; };
    // Where the picture is smaller than the thumbnail, several cells show the same row.
    const std::int64_t first = extent < count ? (begin * count + extent - 1) / extent : lastShowing(begin);
    return {first, lastShowing(end - 1) + 1};
}

/// Divides the sums of cells of one size, rounding to nearest, exactly as (sum + pixels / 2) / pixels does but
/// without a division for each channel.
class CellDivider
{
public:
    /// Above this many pixels the multiplication is not exact any more.
    static constexpr std::int64_t maxPixels = std::int64_t(1) << 20;

    /// @param pixels 1 to `maxPixels`
    explicit constexpr CellDivider(std::int64_t pixels)
        : m_half(std::uint64_t(pixels) / 2), m_reciprocal((std::uint64_t(1) << shift) / std::uint64_t(pixels) + 1)
    {}

    /// @param sum at most 255 for each pixel
    constexpr std::uint8_t average(std::uint64_t sum) const
    {
        // The reciprocal is too large by at most 2^-48; that stays below the 1/pixels that would change the quotient
        // because (sum + half) * pixels < 256 * 2^40.
        return std::uint8_t(((sum + m_half) * m_reciprocal) >> shift);
    }

private:
    static constexpr int shift = 48;

    std::uint64_t m_half;
    std::uint64_t m_reciprocal;
};

} // namespace ostrel
