#include "platform/pixels/PixelConversion.h"

#include <algorithm>
#include <cstring>

namespace ostrel {

namespace {

constexpr std::ptrdiff_t bytesPerPixel = 4;

bool swapsAxes(int transform)
{
    return transform % 2 != 0;
}

/// Whether going down the upright picture leads towards the start of its axis in memory.
bool runsBackwardsDown(int transform)
{
    return transform == 2 || transform == 3 || transform == 6 || transform == 7;
}

/// The same for going right.
bool runsBackwardsRight(int transform)
{
    return transform == 1 || transform == 2 || transform == 4 || transform == 7;
}

/// Where the upright picture's pixels lie in memory.
struct Walk {
    const std::uint8_t *origin;
    std::ptrdiff_t right; ///< bytes from a pixel to its right neighbour
    std::ptrdiff_t down;
};

Walk walkThrough(const PixelConversion &conversion, const PixelSource &source)
{
    const std::ptrdiff_t lastRow = (source.size.height() - 1) * source.stride;
    Walk walk{.origin = source.pixels + (conversion.bottomUp ? lastRow : 0),
              .right = bytesPerPixel,
              .down = conversion.bottomUp ? -source.stride : source.stride};
    if (swapsAxes(conversion.transform))
        std::swap(walk.right, walk.down);
    const QSize upright = conversion.uprightSize(source.size);
    if (runsBackwardsRight(conversion.transform)) {
        walk.origin += (upright.width() - 1) * walk.right;
        walk.right = -walk.right;
    }
    if (runsBackwardsDown(conversion.transform)) {
        walk.origin += (upright.height() - 1) * walk.down;
        walk.down = -walk.down;
    }
    return walk;
}

/// A rectangle of the upright picture, pixel by pixel.
template <bool swapsColours>
void convertTile(const Walk &walk, const QRect &tile, int width, std::uint8_t *to)
{
    for (int y = tile.top(); y <= tile.bottom(); ++y) {
        const std::uint8_t *from = walk.origin + y * walk.down + tile.left() * walk.right;
        std::uint8_t *pixel = to + (std::ptrdiff_t(y) * width + tile.left()) * bytesPerPixel;
        for (int x = 0; x < tile.width(); ++x) {
            std::memcpy(pixel, from, bytesPerPixel);
            if constexpr (swapsColours)
                std::swap(pixel[0], pixel[2]);
            from += walk.right;
            pixel += bytesPerPixel;
        }
    }
}

void copyRows(const PixelSource &source, RowRange rows, std::uint8_t *to)
{
    const std::ptrdiff_t rowBytes = source.size.width() * bytesPerPixel;
    for (int y = rows.begin; y < rows.end; ++y)
        std::memcpy(to + y * rowBytes, source.pixels + y * source.stride, std::size_t(rowBytes));
}

} // namespace

QSize PixelConversion::uprightSize(QSize size) const
{
    return swapsAxes(transform) ? size.transposed() : size;
}

std::optional<RowRange> PixelConversion::uprightRows(const QRect &rectangle, QSize size) const
{
    const QRect inside = rectangle & QRect(QPoint(), size);
    if (inside.isEmpty())
        return std::nullopt;
    // Nobody says which way up the rectangles of such a picture are.
    if (bottomUp)
        return RowRange{.begin = 0, .end = uprightSize(size).height()};
    const RowRange along = swapsAxes(transform) ? RowRange{.begin = inside.left(), .end = inside.right() + 1}
                                                : RowRange{.begin = inside.top(), .end = inside.bottom() + 1};
    if (!runsBackwardsDown(transform))
        return along;
    const int height = uprightSize(size).height();
    return RowRange{.begin = height - along.end, .end = height - along.begin};
}

void convertRows(const PixelConversion &conversion, const PixelSource &source, RowRange rows, std::uint8_t *to)
{
    if (conversion.isIdentity())
        return copyRows(source, rows, to);
    // Turned by a quarter, neighbours come from rows that lie far apart: in tiles, what the cache has is used up.
    constexpr int tileSize = 32;
    const Walk walk = walkThrough(conversion, source);
    const int width = conversion.uprightSize(source.size).width();
    for (int top = rows.begin; top < rows.end; top += tileSize) {
        const int height = std::min(tileSize, rows.end - top);
        for (int left = 0; left < width; left += tileSize) {
            const QRect tile(left, top, std::min(tileSize, width - left), height);
            if (conversion.redFirst)
                convertTile<true>(walk, tile, width, to);
            else
                convertTile<false>(walk, tile, width, to);
        }
    }
}

} // namespace ostrel
