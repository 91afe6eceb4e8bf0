#pragma once

#include "platform/sessionbus/BusCall.h"

#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

namespace ostrel {

/// Where GNOME's compositor tells of its monitors; nobody else does so in a session of Wayland's.
namespace ShellNames {
constexpr const char *service = "org.gnome.Mutter.DisplayConfig"; ///< name and interface
constexpr const char *path = "/org/gnome/Mutter/DisplayConfig";
constexpr const char *changed = "MonitorsChanged";
constexpr const char *read = "GetCurrentState";
} // namespace ShellNames

struct ShellMonitors {
    QSet<QString> connected; ///< by connector, vendor, product and serial number
    /// Without those that are switched off, as a closed lid's is. In order, and by what they are in any session:
    /// vendor, product and serial number, for docks name their connectors anew at each plugging.
    QStringList shown;
};

/// Blocks until the compositor has answered.
/// @return nothing where there is none that tells, or it does not answer
std::optional<ShellMonitors> readShellMonitors(const BusLine &line);

/// What its answer says. @return nothing for one of another form
std::optional<ShellMonitors> shellMonitorsIn(GVariant *answer);

} // namespace ostrel
