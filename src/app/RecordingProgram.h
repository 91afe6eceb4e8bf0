#pragma once

#include "app/RecorderLock.h"
#include "base/Error.h"

#include <QString>

namespace ostrel {

// What the programs that record, the tray and `ostrel record`, have in common beside the model.

/// Takes the lock, and puts the privacy rules where the user finds them. Without their file the built-in rules hold all
/// the same, so that a failure there is only logged.
/// @return an error that names who records already, or the lock file's error
Result<RecorderLock> beginRecordingProgram();

/// Ends the process without waiting for anything, and says on standard error what that costs. The observer notices that
/// we are gone and finishes what it has.
[[noreturn]] void endAtOnce();

/// The same at the end of everything, when only what captures the screen hangs.
/// @param lostFrames those that the observer has not taken; they are a failure
/// @param status     the exit status where there are none
[[noreturn]] void endWithoutCapture(qint64 lostFrames, int status);

/// Another program takes the place of this process, threads that hang and locks included. Returns when it can't.
void becomeProgram(const QString &program);

} // namespace ostrel
