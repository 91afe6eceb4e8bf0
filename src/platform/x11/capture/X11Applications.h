#pragma once

#include "capture/DisplayFilter.h"

#include <QList>

namespace ostrel {

class X11Connection;

/// The processes that the window manager's windows belong to, each once, as far as the windows tell. Two round trips;
/// an empty list without a window manager. Bundle identifiers are not known here.
QList<ScreenCaptureApplicationIdentity> applicationsWithWindows(X11Connection &connection);

} // namespace ostrel
