#pragma once

#include "app/doctor/DesktopFacts.h"

namespace ostrel {

/// Looks for logind on the system bus. Any thread. A bus that hangs keeps it for ever; a logind that hangs counts as
/// one that does not answer.
SystemBusFacts readSystemBusFacts();

} // namespace ostrel
