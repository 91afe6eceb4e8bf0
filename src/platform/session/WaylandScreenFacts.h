#pragma once

#include "app/doctor/DesktopFacts.h"

#include <QByteArray>

namespace ostrel {

/// Looks at a Wayland session and tries what recordings need: a picture of every display, and word of the window in
/// front. Where the compositor gives no pictures, it looks at the desktop's portal. Any thread; a compositor that hangs
/// may keep it for long.
/// @param display    as in $WAYLAND_DISPLAY
/// @param swaySocket as in $SWAYSOCK
/// @return Fault::NoWaylandDisplay, Fault::TimedOut; Fault::NoScreencopy where there is no portal either
Result<ScreenFacts> readWaylandScreenFacts(const QByteArray &display, const QByteArray &swaySocket);

/// The same where the user has chosen the portal, whatever the compositor gives.
/// @return Fault::NoScreenPortal
Result<ScreenFacts> readPortalScreenFacts(const QByteArray &swaySocket);

} // namespace ostrel
