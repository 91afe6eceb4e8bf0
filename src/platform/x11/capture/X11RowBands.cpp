#include "platform/x11/capture/X11RowBands.h"

#include <algorithm>

namespace ostrel {

namespace {

/// A request costs both sides about as much time as copying this many rows of an ordinary screen.
constexpr int widestGap = 16;

} // namespace

std::vector<RowRange> mergedRows(std::vector<RowRange> rows)
{
    std::ranges::sort(rows, {}, &RowRange::begin);
    std::vector<RowRange> merged;
    for (const RowRange &range : rows) {
        if (!merged.empty() && range.begin <= merged.back().end + widestGap)
            merged.back().end = std::max(merged.back().end, range.end);
        else
            merged.push_back(range);
    }
    return merged;
}

std::vector<RowRange> changedRowsOf(std::span<const QRect> changes, const QRect &area)
{
    std::vector<RowRange> rows;
    for (const QRect &change : changes) {
        const QRect inside = (change & area).translated(-area.topLeft());
        if (!inside.isEmpty())
            rows.push_back({.begin = inside.top(), .end = inside.bottom() + 1});
    }
    return mergedRows(std::move(rows));
}

} // namespace ostrel
