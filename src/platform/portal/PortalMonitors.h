#pragma once

#include "platform/portal/PortalSeams.h"
#include "platform/sessionbus/BusCall.h"

#include <QStringList>

namespace ostrel {

/// The monitors that the session shows something on, by name and in order: as GNOME's shell tells on the bus, which
/// also knows their serial numbers, or else as the compositor does. Blocks until they have answered.
/// @return empty where nobody tells
QStringList readMonitors(const BusLine &line, const PortalSeams &seams);

/// The same over a connection of its own. Any thread.
QStringList readMonitors(const PortalSeams &seams);

} // namespace ostrel
