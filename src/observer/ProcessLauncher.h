#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <memory>

namespace ostrel {

struct ProcessDescription {
    QString executable; ///< a path
    QStringList arguments;
    QProcessEnvironment environment;
    QString workingDirectory;
    /// An open descriptor that becomes standard output and standard error; -1 sends both to nowhere.
    int logDescriptor = -1;
    /// Written to standard input right after the launch. The pipe then stays open: its end tells the child that we
    /// are gone.
    QByteArray standardInput;
};

/// A child that was started. Destroying it neither ends the child nor waits for it. Main thread.
class ChildProcess
{
public:
    virtual ~ChildProcess() = default;
    virtual bool isRunning() const = 0;
    virtual qint64 processId() const = 0;
    /// Asks the child to end (SIGTERM) and returns at once.
    virtual void terminate() = 0;
};

class ProcessLauncher
{
public:
    virtual ~ProcessLauncher() = default;
    /// Returns when the program runs, or with Fault::NoSuchProgram, PermissionDenied, NoSuchFile (working folder) or
    /// ProgramFailedToStart.
    virtual Result<std::unique_ptr<ChildProcess>> launch(const ProcessDescription &description) = 0;
};

} // namespace ostrel
