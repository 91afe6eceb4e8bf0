#pragma once

#include "platform/portal/PortalSeams.h"
#include "platform/sessionbus/BusCall.h"

#include <QStringList>

namespace ostrel {

/// The monitors that a session shows something on.
struct ToldMonitors {
    QStringList names; ///< in order; empty where nobody tells
    /// By GNOME's shell, whose portal knows a monitor by the same words: a token that was given for just these opens a
    /// session without a question. KDE's looks for monitors at the places where they were, and asks when one is not
    /// there.
    bool areTheShells = false;
};

/// As GNOME's shell tells them, or where there is none, as the compositor does. Blocks until they have answered; a
/// shell that doesn't in a second tells nothing.
ToldMonitors readMonitors(const BusLine &line, const PortalSeams &seams);

/// The same over a connection of its own, for a few seconds at the most. Any thread.
ToldMonitors readMonitors(const PortalSeams &seams);

} // namespace ostrel
