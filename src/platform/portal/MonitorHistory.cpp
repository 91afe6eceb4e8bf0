#include "platform/portal/MonitorHistory.h"

#include <algorithm>

namespace ostrel {

void MonitorHistory::note(Time at, const Monitors &monitors)
{
    m_changes.append({.at = at, .monitors = monitors});
}

void MonitorHistory::outlive(Time before)
{
    const auto isOutlived = [before](const Change &change) { return change.at < before; };
    for (const Change &change : m_changes) {
        if (m_kept && isOutlived(change))
            m_kept->intersect(change.monitors);
    }
    m_changes.removeIf(isOutlived);
}

bool MonitorHistory::hasChanged(Time from, Time to) const
{
    return std::ranges::any_of(m_changes, [&](const Change &change) { return change.at >= from && change.at <= to; });
}

bool MonitorHistory::hasLost(Time from, Time to) const
{
    MonitorHistory before = *this;
    before.outlive(from);
    return before.m_kept && std::ranges::any_of(before.m_changes, [&](const Change &change) {
               return change.at <= to && !change.monitors.contains(*before.m_kept);
           });
}

} // namespace ostrel
