#include "support/TestProcess.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <csignal>
#include <stdexcept>
#include <sys/prctl.h>

namespace ostrel {

void failTest(const QString &what)
{
    throw std::runtime_error(what.toStdString());
}

void waitUntil(const QString &what, std::chrono::milliseconds timeout, const std::function<bool()> &isThere)
{
    QElapsedTimer elapsed;
    elapsed.start();
    while (!isThere()) {
        if (elapsed.hasExpired(timeout.count()))
            failTest(QStringLiteral("Timed out: waiting for %1").arg(what));
        QThread::msleep(5);
    }
}

TestProcess::TestProcess(Command command) : m_command(std::move(command))
{
    m_process.setProgram(m_command.program);
    m_process.setArguments(m_command.arguments);
    m_process.setProcessEnvironment(m_command.environment);
    m_process.setStandardInputFile(QProcess::nullDevice());
    m_process.setStandardErrorFile(m_command.logFile, QIODevice::Append);
    m_process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    m_process.start();
    if (!m_process.waitForStarted(5000))
        failTest(QStringLiteral("\"%1\" could not be started: %2. Is it installed?")
                     .arg(m_command.program, m_process.errorString()));
}

TestProcess::~TestProcess()
{
    stop();
}

QByteArray TestProcess::readLine(std::chrono::milliseconds timeout)
{
    QElapsedTimer elapsed;
    elapsed.start();
    while (!m_process.canReadLine()) {
        const qint64 left = timeout.count() - elapsed.elapsed();
        if (left <= 0 || !m_process.waitForReadyRead(int(left)))
            failTest(QStringLiteral("\"%1\" did not say that it is ready. It wrote: %2").arg(m_command.program, log()));
    }
    return m_process.readLine().trimmed();
}

int TestProcess::waitForExit(std::chrono::milliseconds timeout)
{
    if (isRunning() && !m_process.waitForFinished(int(timeout.count())))
        failTest(QStringLiteral("\"%1\" did not end in time. It wrote: %2").arg(m_command.program, log()));
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

void TestProcess::stop()
{
    if (!isRunning())
        return;
    thaw();
    m_process.terminate();
    if (!m_process.waitForFinished(2000))
        kill();
}

void TestProcess::kill()
{
    m_process.kill();
    m_process.waitForFinished(2000);
}

void freezeProcess(pid_t process)
{
    ::kill(process, SIGSTOP);
    const QString stat = QStringLiteral("/proc/%1/stat").arg(process);
    waitUntil(QStringLiteral("a process to stop"), std::chrono::seconds(20), [&stat] {
        QFile file(stat);
        return file.open(QIODevice::ReadOnly) && file.readAll().contains(") T ");
    });
}

void TestProcess::freeze()
{
    freezeProcess(pid_t(pid()));
}

void TestProcess::thaw()
{
    ::kill(pid_t(pid()), SIGCONT);
}

QString TestProcess::log() const
{
    QFile file(m_command.logFile);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("(nothing)");
    return QString::fromUtf8(file.readAll().right(2000));
}

} // namespace ostrel
