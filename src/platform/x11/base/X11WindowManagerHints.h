#pragma once

#include <xcb/xcb.h>

namespace ostrel {

class X11Connection;

/// The window that speaks for the running window manager, by its hints (EWMH). Two round trips.
/// @return XCB_WINDOW_NONE when none runs that says so
xcb_window_t windowManagerWindow(X11Connection &connection);

/// Whether a window manager runs that sets this hint ("_NET_ACTIVE_WINDOW"): what it can do, not what it has done, for
/// before the first window some have never set it. A few round trips.
bool windowManagerSupports(X11Connection &connection, const char *hint);

} // namespace ostrel
