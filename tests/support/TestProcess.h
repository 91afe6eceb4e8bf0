#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>

#include <sys/types.h>

namespace ostrel {

/// Ends the test with what went wrong; GoogleTest reports it as a failure of the running test.
[[noreturn]] void failTest(const QString &what);

/// Asks a running system again and again until it says yes; ends the test when the time is over.
/// @param what completes "Timed out: waiting for …"
void waitUntil(const QString &what, std::chrono::milliseconds timeout, const std::function<bool()> &isThere);

/// Freezes a process, as one that hangs, and returns when it does nothing any more. No event is handled meanwhile.
void freezeProcess(pid_t process);

/// A real program of a test. It does not outlive the test, not even a test that crashes. Main thread.
class TestProcess
{
public:
    struct Command {
        QString program; ///< found by PATH
        QStringList arguments;
        QProcessEnvironment environment;
        QString logFile; ///< takes what the program writes to standard error
    };

    /// Starts it; ends the test when it is not installed.
    explicit TestProcess(Command command);
    TestProcess(const TestProcess &) = delete;
    TestProcess &operator=(const TestProcess &) = delete;
    /// Asks it to end, and ends it when it has not after two seconds.
    ~TestProcess();

    qint64 pid() const { return m_process.processId(); }
    bool isRunning() const { return m_process.state() == QProcess::Running; }

    /// The next line of its standard output, without the line break; ends the test when none comes.
    QByteArray readLine(std::chrono::milliseconds timeout);
    /// Waits until it has ended by itself. @return its exit status
    int waitForExit(std::chrono::milliseconds timeout);
    QByteArray readAllOutput() { return m_process.readAllStandardOutput(); }

    void stop();
    void kill();
    /// Freezes it, as a program that hangs.
    void freeze();
    void thaw();

private:
    QString log() const;

    Command m_command;
    QProcess m_process;
};

} // namespace ostrel
