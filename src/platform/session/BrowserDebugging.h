#pragma once

#include "platform/devtools/DebuggingPorts.h"

namespace ostrel {

/// This user's browsers on this machine.
DebuggingPorts makeDebuggingPorts();

} // namespace ostrel
