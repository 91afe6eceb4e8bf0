#include "platform/portal/ChangedRows.h"

#include <algorithm>

namespace ostrel {

std::vector<RowRange> joinedRows(std::vector<RowRange> rows)
{
    std::ranges::sort(rows, {}, &RowRange::begin);
    std::vector<RowRange> apart;
    for (const RowRange &next : rows) {
        if (!apart.empty() && next.begin <= apart.back().end)
            apart.back().end = std::max(apart.back().end, next.end);
        else
            apart.push_back(next);
    }
    return apart;
}

} // namespace ostrel
