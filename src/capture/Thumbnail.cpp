#include "capture/Thumbnail.h"

#include "capture/ThumbnailCells.h"
#include "capture/ThumbnailKernel.h"

#include <array>
#include <cstddef>

namespace ostrel {

namespace {

constexpr std::size_t bytesPerPixel = 4;

bool hasPixels(const FrameView &image)
{
    return image.pixels && image.width > 0 && image.height > 0;
}

bool fitsKernel(const FrameView &image)
{
    const auto largest = [](std::int64_t extent, int count) { return extent / count + 1; };
    return largest(image.width, downsampleWidth) * largest(image.height, downsampleHeight) <= CellDivider::maxPixels;
}

/// The sums of a cell's channels, in the picture's order.
std::array<std::uint64_t, bytesPerPixel> sumOf(const FrameView &image, CellRange columns, CellRange rows)
{
    std::array<std::uint64_t, bytesPerPixel> sum{};
    for (std::int64_t y = rows.begin; y < rows.end; ++y) {
        const std::uint8_t *row = image.pixels + y * image.stride;
        for (std::int64_t x = columns.begin; x < columns.end; ++x) {
            for (std::size_t channel = 0; channel < bytesPerPixel; ++channel)
                sum[channel] += row[std::size_t(x) * bytesPerPixel + channel];
        }
    }
    return sum;
}

void computeReferenceRow(const FrameView &image, int y, std::uint8_t *out)
{
    const CellRange rows = cellRange(y, downsampleHeight, image.height);
    for (int x = 0; x < downsampleWidth; ++x) {
        const CellRange columns = cellRange(x, downsampleWidth, image.width);
        const auto [blue, green, red, unused] = sumOf(image, columns, rows);
        const std::uint64_t count = std::uint64_t(columns.size()) * std::uint64_t(rows.size());
        for (const std::uint64_t sum : {red, green, blue})
            *out++ = std::uint8_t((sum + count / 2) / count);
        *out++ = 255;
    }
}

void computeReferenceRows(const FrameView &image, int begin, int end, Downsample &thumbnail)
{
    for (int y = begin; y < end; ++y)
        computeReferenceRow(image, y, thumbnail.data() + std::size_t(y) * downsampleWidth * bytesPerPixel);
}

} // namespace

std::optional<Downsample> makeReferenceDownsample(const FrameView &image)
{
    if (!hasPixels(image))
        return std::nullopt;
    Downsample thumbnail(downsampleBytes);
    computeReferenceRows(image, 0, downsampleHeight, thumbnail);
    return thumbnail;
}

std::optional<Downsample> Downsampler::makeDownsample(const FrameView &image)
{
    Downsample thumbnail;
    if (!updateRows(image, 0, downsampleHeight, thumbnail))
        return std::nullopt;
    return thumbnail;
}

bool Downsampler::updateRows(const FrameView &image, int begin, int end, Downsample &thumbnail)
{
    if (!hasPixels(image))
        return false;
    thumbnail.resize(downsampleBytes);
    if (fitsKernel(image)) {
        m_columnSums.resize(std::size_t(image.width) * bytesPerPixel);
        computeDownsampleRows(image, begin, end, thumbnail.data(), m_columnSums.data());
    } else {
        computeReferenceRows(image, begin, end, thumbnail);
    }
    return true;
}

} // namespace ostrel
