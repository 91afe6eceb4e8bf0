#include "capture/ThumbnailKernel.h"

#include "capture/Thumbnail.h"
#include "capture/ThumbnailCells.h"

#include <algorithm>
#include <array>
#include <cstddef>

// This file is compiled once for every instruction set that the processor may have; `foreach_target` includes it again
// and again, and the last section chooses among the results at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "capture/ThumbnailKernel.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace ostrel {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

constexpr std::size_t bytesPerPixel = 4;
/// 257 rows of 255 fill 16 bits exactly.
constexpr std::int64_t maxRowsPerSum = 65535 / 255;
constexpr int rowsPerPass = 4;
/// Imitated vectors are left to the compiler, which makes real ones only of loops that do nothing else.
constexpr bool asksAhead = HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR;

using CellSums = std::array<std::uint32_t, std::size_t(downsampleWidth) * bytesPerPixel>;

/// Some rows of a picture, and those that are added after them: they are fetched from memory meanwhile.
struct Pass {
    const std::uint8_t *first;
    const std::uint8_t *next; ///< the same again where none comes after
    std::ptrdiff_t stride;
};

/// Adds `rows` rows, each of `bytes` bytes, to the sums of their columns, or begins the sums with them. Several rows
/// a pass, because each pass also reads and writes all the sums.
template <int rows, bool begins>
HWY_INLINE void addRows(const Pass &pass, std::uint16_t *sums, std::size_t bytes)
{
    constexpr std::size_t cacheLine = 64;
    const hn::CappedTag<std::uint16_t, cacheLine> wide;
    const hn::Rebind<std::uint8_t, decltype(wide)> narrow;
    const std::size_t lanes = hn::Lanes(wide);
    std::size_t i = 0;
    for (; i + lanes <= bytes; i += lanes) {
        for (int row = 0; asksAhead && row < rows && i % cacheLine == 0; ++row)
            hwy::Prefetch(pass.next + row * pass.stride + i);
        auto sum = hn::PromoteTo(wide, hn::LoadU(narrow, pass.first + i));
        for (int row = 1; row < rows; ++row)
            sum = hn::Add(sum, hn::PromoteTo(wide, hn::LoadU(narrow, pass.first + row * pass.stride + i)));
        if constexpr (!begins)
            sum = hn::Add(sum, hn::LoadU(wide, sums + i));
        hn::StoreU(sum, wide, sums + i);
    }
    // The rest one by one: a vector would read past the row's end, and past the last row there may be no memory.
    for (; i < bytes; ++i) {
        std::uint16_t sum = begins ? 0 : sums[i];
        for (int row = 0; row < rows; ++row)
            sum += pass.first[row * pass.stride + std::ptrdiff_t(i)];
        sums[i] = sum;
    }
}

/// The sums of the columns over at most `maxRowsPerSum` rows.
/// @param rowsBelow from the first row to the picture's end
HWY_INLINE void sumColumns(const std::uint8_t *first, std::ptrdiff_t stride, std::int64_t rows, std::int64_t rowsBelow,
                           std::uint16_t *sums, std::size_t bytes)
{
    const auto passAt = [&](std::int64_t row, std::int64_t next) {
        const std::uint8_t *const begin = first + row * stride;
        return Pass{
            .first = begin, .next = next + rowsPerPass <= rowsBelow ? first + next * stride : begin, .stride = stride};
    };
    std::int64_t row = rows % rowsPerPass;
    switch (row) {
    case 0:
        row = rowsPerPass;
        addRows<rowsPerPass, true>(passAt(0, row), sums, bytes);
        break;
    case 1:
        addRows<1, true>(passAt(0, row), sums, bytes);
        break;
    case 2:
        addRows<2, true>(passAt(0, row), sums, bytes);
        break;
    default:
        addRows<3, true>(passAt(0, row), sums, bytes);
        break;
    }
    for (; row < rows; row += rowsPerPass)
        addRows<rowsPerPass, false>(passAt(row, row + rowsPerPass), sums, bytes);
}

/// Adds the column sums to those of the cells that the columns belong to.
HWY_INLINE void addToCells(const std::uint16_t *columnSums, int width, CellSums &cells)
{
    const hn::FixedTag<std::uint32_t, bytesPerPixel> wide;
    const hn::Rebind<std::uint16_t, decltype(wide)> narrow;
    for (int x = 0; x < downsampleWidth; ++x) {
        const CellRange columns = cellRange(x, downsampleWidth, width);
        std::uint32_t *cell = cells.data() + std::size_t(x) * bytesPerPixel;
        auto sum = hn::LoadU(wide, cell);
        for (std::int64_t column = columns.begin; column < columns.end; ++column) {
            const std::uint16_t *pixel = columnSums + std::size_t(column) * bytesPerPixel;
            sum = hn::Add(sum, hn::PromoteTo(wide, hn::LoadU(narrow, pixel)));
        }
        hn::StoreU(sum, wide, cell);
    }
}

HWY_INLINE void storeAverages(const CellSums &cells, int width, std::int64_t rows, std::uint8_t *out)
{
    // Cells of one row have one of two sizes.
    const std::int64_t narrowest = std::max(1, width / downsampleWidth);
    const CellDivider dividers[] = {CellDivider(narrowest * rows), CellDivider((narrowest + 1) * rows)};
    for (int x = 0; x < downsampleWidth; ++x) {
        const CellDivider &divider = dividers[cellRange(x, downsampleWidth, width).size() - narrowest];
        const std::uint32_t *cell = cells.data() + std::size_t(x) * bytesPerPixel;
        for (const int channel : {2, 1, 0}) // blue, green, red there; red, green, blue here
            *out++ = divider.average(cell[channel]);
        *out++ = 255;
    }
}

void computeRows(const FrameView &image, int firstRow, int endRow, std::uint8_t *thumbnail, std::uint16_t *columnSums)
{
    const std::size_t rowBytes = std::size_t(image.width) * bytesPerPixel;
    for (int y = firstRow; y < endRow; ++y) {
        const CellRange rows = cellRange(y, downsampleHeight, image.height);
        CellSums cells{};
        for (std::int64_t row = rows.begin; row < rows.end; row += maxRowsPerSum) {
            sumColumns(image.pixels + row * image.stride, image.stride, std::min(maxRowsPerSum, rows.end - row),
                       image.height - row, columnSums, rowBytes);
            addToCells(columnSums, image.width, cells);
        }
        storeAverages(cells, image.width, rows.size(), thumbnail + std::size_t(y) * downsampleWidth * bytesPerPixel);
    }
}

} // namespace HWY_NAMESPACE
} // namespace ostrel
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ostrel {

HWY_EXPORT(computeRows);

void computeDownsampleRows(const FrameView &image, int firstRow, int endRow, std::uint8_t *thumbnail,
                           std::uint16_t *columnSums)
{
    HWY_DYNAMIC_DISPATCH(computeRows)(image, firstRow, endRow, thumbnail, columnSums);
}

} // namespace ostrel
#endif
