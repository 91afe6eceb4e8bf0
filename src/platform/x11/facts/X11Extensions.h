#pragma once

#include "app/doctor/DesktopFacts.h"

#include <memory>

namespace ostrel {

class X11Connection;

/// Each asks the server for one extension and tries it; a few round trips. Nothing where the server has no such
/// extension. What a try makes on the server is gone when it returns.

/// MIT-SHM: the server writes into memory of ours.
std::optional<ExtensionFacts> trySharedMemory(const std::shared_ptr<X11Connection> &connection);
/// XDamage: the root window's changes can be listened to.
std::optional<ExtensionFacts> tryDamage(X11Connection &connection);
/// XFixes: the pointer's picture can be had.
std::optional<ExtensionFacts> tryCursor(X11Connection &connection);
/// RandR 1.5: the monitors are told one by one.
std::optional<ExtensionFacts> tryMonitors(X11Connection &connection);

} // namespace ostrel
