#pragma once

#include "capture/DisplaySource.h"

#include <QRect>

#include <span>
#include <vector>

namespace ostrel {

/// Puts ranges in order and unites those that overlap or lie so close that two requests would cost more than the rows
/// between them.
std::vector<RowRange> mergedRows(std::vector<RowRange> rows);

/// The rows of an area that rectangles touch, counted from the area's top and merged.
/// @param changes anywhere on the X screen, in any order
/// @param area    pixels on the X screen
std::vector<RowRange> changedRowsOf(std::span<const QRect> changes, const QRect &area);

} // namespace ostrel
