#include "platform/portal/StreamMonitor.h"

namespace ostrel {

namespace {

/// Whether there is a scale by which the monitor's logical size is that of the picture, each side rounded.
bool fits(QSize picture, QSize monitor)
{
    const auto isWithin = [](qint64 pixels, qint64 logical, qint64 otherPixels, qint64 otherLogical) {
        return pixels * (otherLogical - 1) <= otherPixels * (logical + 1);
    };
    return isWithin(picture.width(), monitor.width(), picture.height(), monitor.height()) &&
           isWithin(picture.height(), monitor.height(), picture.width(), monitor.width());
}

} // namespace

QList<QRect> monitorsOfStream(const StreamMonitorFacts &facts, QSize picture, const QList<QRect> &monitors)
{
    QList<QRect> candidates;
    for (const QRect &monitor : monitors) {
        const bool isThere = !facts.corner || monitor.topLeft() == *facts.corner;
        // Monitors that show the same are one.
        if (isThere && !monitor.isEmpty() && fits(picture, monitor.size()) && !candidates.contains(monitor))
            candidates.append(monitor);
    }
    if (candidates.size() > 1 && facts.logicalSize)
        candidates.removeIf([&](const QRect &monitor) { return monitor.size() != *facts.logicalSize; });
    return candidates;
}

} // namespace ostrel
