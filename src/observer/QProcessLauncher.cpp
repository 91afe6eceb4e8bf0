#include "observer/QProcessLauncher.h"

#include "base/Fault.h"
#include "base/Files.h"

#include <QFileInfo>
#include <QProcess>

#include <csignal>
#include <set>

#include <fcntl.h>
#include <linux/close_range.h>
#include <unistd.h>

namespace ostrel {

namespace {

/// Children that run on without a holder. A QProcess kills its child when it is destroyed, so those here never are
/// before their child has ended, not even when we exit; what is never freed by then is reachable from here.
std::set<QProcess *> &unheldProcesses()
{
    static auto *const processes = new std::set<QProcess *>;
    return *processes;
}

void letGo(QProcess *process)
{
    if (process->state() == QProcess::NotRunning) {
        process->deleteLater(); // its own signal may be what leads here
        return;
    }
    unheldProcesses().insert(process);
    QObject::connect(process, &QProcess::finished, process, [process] {
        unheldProcesses().erase(process);
        process->deleteLater();
    });
}

class LaunchedProcess final : public ChildProcess
{
public:
    explicit LaunchedProcess(std::unique_ptr<QProcess> process) : m_process(process.release()) {}
    ~LaunchedProcess() override { letGo(m_process); }

    bool isRunning() const override { return m_process->state() != QProcess::NotRunning; }
    qint64 processId() const override { return m_process->processId(); }

    void terminate() override
    {
        m_process->terminate();
        // Whoever misses the signal still learns from the end of its input that it is not wanted any more.
        m_process->closeWriteChannel();
    }

private:
    QProcess *const m_process;
};

/// Runs in the child between fork and exec: only calls that are safe in a signal handler.
void prepareChild(int logDescriptor)
{
    if (logDescriptor >= 0) {
        ::dup2(logDescriptor, STDOUT_FILENO);
        ::dup2(logDescriptor, STDERR_FILENO);
        // Where it had the very number already, dup2 has left its close-on-exec flag.
        ::fcntl(STDOUT_FILENO, F_SETFD, 0);
        ::fcntl(STDERR_FILENO, F_SETFD, 0);
    }
    ::setsid();
    // Some library may have opened a descriptor without close-on-exec; kernels before 5.11 can't do this.
    ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    // A program that takes its signals from a descriptor has them blocked, and a child inherits that.
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

Result<> check(const ProcessDescription &description)
{
    const QFileInfo folder(description.workingDirectory);
    if (!folder.isDir())
        return std::unexpected(faultError(Fault::NoSuchFile, description.workingDirectory));
    if (!folder.isExecutable())
        return std::unexpected(faultError(Fault::PermissionDenied, description.workingDirectory));
    if (!QFileInfo(description.executable).isFile())
        return std::unexpected(faultError(Fault::NoSuchProgram, description.executable));
    if (!isExecutableFile(description.executable))
        return std::unexpected(faultError(Fault::PermissionDenied, description.executable));
    return {};
}

} // namespace

Result<std::unique_ptr<ChildProcess>> QProcessLauncher::launch(const ProcessDescription &description)
{
    if (const Result<> startable = check(description); !startable)
        return std::unexpected(startable.error());

    auto process = std::make_unique<QProcess>();
    process->setProgram(description.executable);
    process->setArguments(description.arguments);
    process->setProcessEnvironment(description.environment);
    process->setWorkingDirectory(description.workingDirectory);
    if (description.logDescriptor >= 0) {
        process->setProcessChannelMode(QProcess::ForwardedChannels); // no pipes of its own
    } else {
        process->setStandardOutputFile(QProcess::nullDevice());
        process->setStandardErrorFile(QProcess::nullDevice());
    }
    process->setChildProcessModifier([descriptor = description.logDescriptor] { prepareChild(descriptor); });
    process->start();
    if (!process->waitForStarted())
        return std::unexpected(
            faultError(Fault::ProgramFailedToStart,
                       QStringLiteral("%1 (%2)").arg(description.executable, process->errorString())));
    process->write(description.standardInput);
    return std::make_unique<LaunchedProcess>(std::move(process));
}

} // namespace ostrel
