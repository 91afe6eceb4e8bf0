#include "capture/DisplayList.h"

#include <map>
#include <utility>

namespace ostrel {

QList<CapturableDisplay> orderedDisplays(const QList<CapturableDisplay> &displays, quint32 mainDisplayId)
{
    // A multimap keeps equal keys in the order of their coming. (std::stable_sort of libstdc++ 12 calls what clang
    // takes for deprecated.)
    std::multimap<std::pair<bool, quint32>, CapturableDisplay> byRank;
    for (const CapturableDisplay &display : displays)
        byRank.emplace(std::pair(display.displayId != mainDisplayId, display.displayId), display);
    QList<CapturableDisplay> ordered;
    for (const auto &[rank, display] : byRank)
        ordered.append(display);
    return ordered;
}

QString displayLabel(quint32 displayId, qsizetype position, quint32 mainDisplayId)
{
    const QString label = QStringLiteral("Display %1").arg(position + 1);
    return displayId == mainDisplayId ? label + QStringLiteral(" (main)") : label;
}

QList<ActiveDisplayCandidate> activeDisplayCandidates(const QList<CapturableDisplay> &ordered, quint32 mainDisplayId)
{
    QList<ActiveDisplayCandidate> candidates;
    for (const CapturableDisplay &display : ordered) {
        candidates.append(ActiveDisplayCandidate{
            .displayId = QString::number(display.displayId),
            .displayLabel = displayLabel(display.displayId, candidates.size(), mainDisplayId),
            .bounds = display.bounds,
        });
    }
    return candidates;
}

} // namespace ostrel
