#pragma once

#include <QList>
#include <QRect>
#include <QSize>

#include <cstddef>
#include <cstdint>

namespace ostrel {

/// The pixels of a monitor's upright picture that these areas touch, cut off at its edges; empty ones are left out.
/// @param areas   logical pixels on the compositor's desktop
/// @param monitor its place there; where it is empty, nothing is touched
/// @param picture pixels
QList<QRect> pixelsTouched(const QList<QRect> &areas, const QRect &monitor, QSize picture);

/// Makes these pixels black.
/// @param covered within the picture
/// @param pixels  4 bytes each, in rows `stride` bytes apart
void coverPixels(const QList<QRect> &covered, std::uint8_t *pixels, std::ptrdiff_t stride);

} // namespace ostrel
