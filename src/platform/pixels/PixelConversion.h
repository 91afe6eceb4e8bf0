#pragma once

#include "capture/DisplaySource.h"

#include <QRect>
#include <QSize>

#include <cstddef>
#include <cstdint>

namespace ostrel {

/// How a picture in a compositor's memory differs from an upright one of B, G, R and an unused byte.
struct PixelConversion {
    int transform = 0;     ///< of wl_output: quarter turns, plus 4 when mirrored
    bool bottomUp = false; ///< the last row comes first
    bool redFirst = false; ///< red and blue change places

    bool operator==(const PixelConversion &) const = default;

    /// The picture can be used as it is.
    bool isIdentity() const { return *this == PixelConversion{}; }
    /// The size of the upright picture.
    QSize uprightSize(QSize size) const;
    /// The rows of the upright picture that a rectangle of the one in memory lies in. Absent when it lies in none.
    /// @param size of the one in memory
    std::optional<RowRange> uprightRows(const QRect &rectangle, QSize size) const;
};

/// Rows of pixels in memory, 4 bytes each.
struct PixelSource {
    const std::uint8_t *pixels = nullptr;
    QSize size;
    std::ptrdiff_t stride = 0;
};

/// Writes rows of the upright picture.
/// @param rows within the upright picture
/// @param to   the upright picture, without gaps between its rows
void convertRows(const PixelConversion &conversion, const PixelSource &source, RowRange rows, std::uint8_t *to);

} // namespace ostrel
