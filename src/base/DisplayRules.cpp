#include "base/DisplayRules.h"

#include <QSet>

#include <algorithm>
#include <numeric>
#include <tuple>

namespace ostrel {

namespace {

quint32 fnv1a(const QByteArray &bytes)
{
    quint32 hash = 2166136261u;
    for (const char byte : bytes) {
        hash ^= quint8(byte);
        hash *= 16777619u;
    }
    return hash;
}

} // namespace

QList<quint32> displayIdentifiers(const QStringList &names)
{
    // By name, for the same displays may be listed in another order tomorrow.
    QList<qsizetype> byName(names.size());
    std::iota(byName.begin(), byName.end(), 0);
    std::ranges::sort(byName, {}, [&names](qsizetype index) { return std::pair(names[index], index); });
    QList<quint32> identifiers(names.size());
    QSet<quint32> taken;
    for (const qsizetype index : byName) {
        quint32 identifier = fnv1a(names[index].toUtf8());
        while (taken.contains(identifier))
            ++identifier;
        taken.insert(identifier);
        identifiers[index] = identifier;
    }
    return identifiers;
}

std::optional<qsizetype> mainDisplayIndex(const QList<QPoint> &corners)
{
    if (corners.isEmpty())
        return std::nullopt;
    // Smaller is better: the corner of the desktop, then reading order.
    const auto rank = [](QPoint corner) { return std::tuple(corner != QPoint(), corner.y(), corner.x()); };
    return std::ranges::min_element(corners, {}, rank) - corners.begin();
}

} // namespace ostrel
