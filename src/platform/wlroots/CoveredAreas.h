#pragma once

#include "platform/wlroots/WaylandOutputs.h"

#include <QList>
#include <QRect>
#include <QSize>

#include <cstddef>
#include <cstdint>

namespace ostrel {

/// The pixels of an output's upright picture that these areas touch, cut off at its edges; empty ones are left out.
/// @param areas logical pixels on the compositor's desktop
QList<QRect> pixelsTouched(const QList<QRect> &areas, const WaylandOutputLook &output);

/// Makes these pixels black.
/// @param covered within the picture
/// @param pixels  4 bytes each, in rows `stride` bytes apart
void coverPixels(const QList<QRect> &covered, std::uint8_t *pixels, std::ptrdiff_t stride);

} // namespace ostrel
