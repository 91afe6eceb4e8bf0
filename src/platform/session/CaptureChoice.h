#pragma once

#include <QProcessEnvironment>

namespace ostrel {

/// How the screens of a Wayland session are captured.
enum class WaylandCapture {
    AsOffered, ///< by still pictures where the compositor gives them, and otherwise through the desktop's portal
    Portal,    ///< through the portal, whatever the compositor offers
};

/// What the user says in $OSTREL_CAPTURE, for compositors whose still pictures are broken: "portal", or nothing. Any
/// other word is warned of and means nothing.
WaylandCapture readWaylandCapture(const QProcessEnvironment &environment);

} // namespace ostrel
