#pragma once

#include "capture/DisplaySource.h"

#include <optional>
#include <vector>

namespace ostrel {

/// Changed rows of a picture, or nothing when anything may have changed.
using ChangedRows = std::optional<std::vector<RowRange>>;

/// The same rows, ascending and apart.
std::vector<RowRange> joinedRows(std::vector<RowRange> rows);

} // namespace ostrel
