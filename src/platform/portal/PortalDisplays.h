#pragma once

#include "capture/DisplaySource.h"
#include "platform/portal/PortalSession.h"
#include "platform/portal/StreamMonitor.h"

#include <QList>
#include <QSize>
#include <QString>

#include <optional>

namespace ostrel {

/// A monitor of a portal's session, and where its pictures come from.
struct PortalDisplay {
    quint32 node = 0;
    QString name; ///< for messages
    CapturableDisplay display;
    StreamMonitorFacts monitor = {};
};

struct PortalDisplays {
    QList<PortalDisplay> displays;
    quint32 mainDisplayId = 0;
};

/// The displays behind a portal's streams. Their identifiers survive restarts as far as the portal lets them: they are
/// made of the streams' own ids where all have one, of their places where those are told, and otherwise of their order.
/// ("mapping_id" would be no help: it is told by few, and it is another one in every session.)
///
/// Portals that don't know where monitors are say (0,0) for every one. So places count as told only where there are
/// several and no two are alike; otherwise bounds are empty. The main display is then the first one. To find the
/// monitor a place that isn't (0,0) is good in any case.
/// @param pixelSizes of the pictures, in the order of the streams; the logical size stands in for an absent one, and a
///                   stream of which neither is known is left out
PortalDisplays portalDisplays(const QList<PortalStreamFacts> &streams, const QList<std::optional<QSize>> &pixelSizes);

} // namespace ostrel
