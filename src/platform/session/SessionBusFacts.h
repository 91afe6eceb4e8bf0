#pragma once

#include "app/doctor/DesktopFacts.h"

namespace ostrel {

/// Looks at the session bus and at two services on it, without starting either: calls on the bus would, unless told not
/// to. Any thread. A bus that hangs keeps it for ever; a service that hangs counts as one that does not answer.
BusFacts readSessionBusFacts();

} // namespace ostrel
