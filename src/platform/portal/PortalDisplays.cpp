#include "platform/portal/PortalDisplays.h"

#include "base/DisplayRules.h"

#include <QPoint>
#include <QStringList>

#include <algorithm>

namespace ostrel {

namespace {

template <class T>
bool allDiffer(const QList<T> &values)
{
    for (qsizetype i = 0; i < values.size(); ++i) {
        if (values.indexOf(values[i], i + 1) >= 0)
            return false;
    }
    return true;
}

/// The corners of all, where they can be relied on.
std::optional<QList<QPoint>> toldCorners(const QList<PortalStreamFacts> &streams)
{
    QList<QPoint> corners;
    for (const PortalStreamFacts &stream : streams) {
        if (!stream.corner || !stream.logicalSize)
            return std::nullopt;
        corners.append(*stream.corner);
    }
    if (corners.size() < 2 || !allDiffer(corners))
        return std::nullopt;
    return corners;
}

QStringList namesOf(const QList<PortalStreamFacts> &streams, const std::optional<QList<QPoint>> &corners)
{
    QStringList ids;
    for (const PortalStreamFacts &stream : streams)
        ids.append(stream.id);
    if (!ids.contains(QString()) && allDiffer(ids))
        return ids;
    QStringList names;
    for (qsizetype i = 0; i < streams.size(); ++i)
        names.append(corners ? QStringLiteral("at %1,%2").arg((*corners)[i].x()).arg((*corners)[i].y())
                             : QString::number(i + 1));
    return names;
}

} // namespace

PortalDisplays portalDisplays(const QList<PortalStreamFacts> &streams, const QList<std::optional<QSize>> &pixelSizes)
{
    const auto corners = toldCorners(streams);
    const QStringList names = namesOf(streams, corners);
    const QList<quint32> identifiers = displayIdentifiers(names);
    const qsizetype main = corners ? mainDisplayIndex(*corners).value_or(0) : 0;
    PortalDisplays result;
    for (qsizetype i = 0; i < streams.size(); ++i) {
        const auto size = pixelSizes[i] ? pixelSizes[i] : streams[i].logicalSize;
        if (!size)
            continue;
        PortalDisplay display{
            .node = streams[i].node,
            .name = names[i],
            .display = {.displayId = identifiers[i], .width = size->width(), .height = size->height(), .bounds = {}},
            .monitor = {.corner = {}, .logicalSize = streams[i].logicalSize}};
        if (corners || streams[i].corner != QPoint())
            display.monitor.corner = streams[i].corner;
        if (corners)
            display.display.bounds = QRectF((*corners)[i] - (*corners)[main], *streams[i].logicalSize);
        if (result.displays.isEmpty() || i == main)
            result.mainDisplayId = display.display.displayId;
        result.displays.append(display);
    }
    return result;
}

} // namespace ostrel
