#pragma once

#include "capture/DisplaySource.h"

#include <cstdint>

namespace ostrel {

/// Computes rows of a thumbnail with the widest vector instructions that the machine has.
/// @param image      not empty, no cell of more than CellDivider::maxPixels pixels
/// @param firstRow   of the thumbnail's 72 rows
/// @param endRow     one past the last
/// @param thumbnail  the whole thumbnail's bytes; other rows are left alone
/// @param columnSums working memory for image.width * 4 numbers
void computeDownsampleRows(const FrameView &image, int firstRow, int endRow, std::uint8_t *thumbnail,
                           std::uint16_t *columnSums);

} // namespace ostrel
