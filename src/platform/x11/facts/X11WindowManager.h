#pragma once

#include "app/doctor/DesktopFacts.h"

namespace ostrel {

class X11Connection;

/// The window manager that runs, by its hints (EWMH); a few round trips.
/// @return nothing when none runs that says so
std::optional<WindowManagerFacts> readWindowManager(X11Connection &connection);

} // namespace ostrel
