#pragma once

#include "app/doctor/DesktopFacts.h"

#include <QByteArray>

namespace ostrel {

/// Looks at an X screen and tries what recordings need: a picture of every display, memory shared with the server,
/// a listener for changes. All of it ends with the connection. Any thread; a server that hangs may keep it for long.
/// @param display as in $DISPLAY; empty means that $DISPLAY decides
/// @return Fault::NoXDisplay, Fault::TimedOut
Result<ScreenFacts> readX11ScreenFacts(const QByteArray &display);

} // namespace ostrel
