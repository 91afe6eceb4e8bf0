#pragma once

#include "base/Error.h"
#include "observer/ProcessLauncher.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <memory>

namespace ostrel {

/// What goes down the observer's standard input at start, and nowhere else.
struct ObserverSecrets {
    QString analysisApiToken;
    QString byokGoogleVertexApiKey;

    /// One line of JSON with its line break.
    QByteArray toLine() const;
};

/// Starts and stops the observer child. One a model; main thread.
class HelperProcess
{
public:
    explicit HelperProcess(ProcessLauncher &launcher);
    ~HelperProcess();

    /// Does nothing when the child runs already. `repoRoot` is the observer's folder.
    Result<> start(const QString &repoRoot, const QString &localAPIToken, const ObserverSecrets &secrets);

    /// Asks the child to end and forgets it; does not wait.
    void stop();

    bool isRunning() const;

    /// `~/.ostrel/helper.log`, the child's output, begun anew at each start
    static QString logFile();

private:
    ProcessLauncher &m_launcher;
    std::unique_ptr<ChildProcess> m_process;
    std::unique_ptr<QFile> m_logHandle;
};

} // namespace ostrel
