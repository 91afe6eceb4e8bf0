#pragma once

#include "app/RecorderLock.h"
#include "base/Error.h"

namespace ostrel {

// What the programs that record, the tray and `ostrel record`, have in common beside the model.

/// Takes the lock, and puts the privacy rules where the user finds them. Without their file the built-in rules hold all
/// the same, so that a failure there is only logged.
/// @return an error that names who records already, or the lock file's error
Result<RecorderLock> beginRecordingProgram();

/// Ends the process without waiting for anything, and says on standard error what that costs. The observer notices that
/// we are gone and finishes what it has.
[[noreturn]] void endAtOnce();

} // namespace ostrel
