#pragma once

#include "app/CommandResult.h"
#include "app/Platform.h"

#include <QStringList>

namespace ostrel {

/// Runs what the arguments ask for. Main thread, within a QCoreApplication whose event loop does not run yet.
/// @param arguments the program's own, its name first
CommandResult runCommandLine(const QStringList &arguments, const Platform &platform);

/// Writes a text to standard output or standard error as UTF-8 and flushes it.
void printOutput(const QString &text);
void printMessage(const QString &text);

} // namespace ostrel
