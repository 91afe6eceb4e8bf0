#pragma once

#include "app/CommandResult.h"
#include "app/Platform.h"
#include "base/Error.h"

#include <QStringList>

namespace ostrel {

/// Runs what the arguments ask for. Main thread, within a QCoreApplication whose event loop does not run yet.
/// @param arguments the program's own, its name first
CommandResult runCommandLine(const QStringList &arguments, const Platform &platform);

/// Writes the data to standard output and the messages to standard error.
/// @return the exit status: the result's own, or 1 where the data could not all be written
int printResult(const CommandResult &result);

/// Writes data to standard output as UTF-8 and flushes it: for commands that go on after it. @return why it failed
Result<> printData(const QString &text);

/// Writes a text to standard error as UTF-8 and flushes it.
void printMessage(const QString &text);

} // namespace ostrel
