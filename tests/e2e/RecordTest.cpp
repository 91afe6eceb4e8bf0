#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <gmock/gmock.h>

#include <csignal>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

const QStringList record{QStringLiteral("record")};

QStringList recordFor(int seconds)
{
    return {QStringLiteral("record"), QStringLiteral("--seconds"), QString::number(seconds)};
}

/// A real desktop with one terminal in front, and window titles allowed.
class Recording : public testing::Test
{
protected:
    Recording()
    {
        m_ostrel.writeSettings();
        m_desktop.startTerminal(m_title);
        EXPECT_EQ(
            m_ostrel.run({QStringLiteral("permissions"), QStringLiteral("allow"), QStringLiteral("recordingContext")})
                .status,
            0);
    }

    /// Types a word every second, so that the picture changes.
    void typeFor(std::chrono::seconds duration)
    {
        for (int i = 0; i < duration.count(); ++i) {
            m_desktop.type(QStringLiteral("word "));
            QThread::sleep(1); // the program under test runs in real time; nothing is awaited by this
        }
    }

    /// The observer of this home, while it runs: who has the lock of its state folder open.
    QList<qint64> observerProcesses() const
    {
        QList<qint64> found;
        for (const QString &name : QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[0-9]*")}, QDir::Dirs)) {
            const QByteArray commandLine = readProc(name, "cmdline");
            const QByteArray home = "HOME=" + m_ostrel.home().toLocal8Bit();
            if (commandLine.contains("observer.mjs") && readProc(name, "environ").split('\0').contains(home))
                found.append(name.toLongLong());
        }
        return found;
    }

    static QByteArray readProc(const QString &process, const char *name)
    {
        QFile file(QStringLiteral("/proc/%1/%2").arg(process, QString::fromLatin1(name)));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    void expectNoObserverStays() const
    {
        waitUntil(QStringLiteral("the observer to end"), 15s, [this] { return observerProcesses().isEmpty(); });
    }

    /// What waits to be analysed.
    QStringList spooledFiles() const
    {
        QStringList files;
        for (const char *folder : {"incoming", "pending"}) {
            const QDir directory(m_ostrel.path(QStringLiteral(".ostrel/observer/")) + QString::fromLatin1(folder));
            files += directory.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
        }
        return files;
    }

    const QString m_title = QStringLiteral("Release checklist");
    VirtualDesktop m_desktop{{.size = {1280, 800}, .windowManager = true}};
    OstrelProgram m_ostrel{m_desktop.environment()};
};

TEST_F(Recording, forSomeSeconds_writesTheJournalOfWhatWasInFront)
{
    m_ostrel.start(recordFor(14));
    m_ostrel.waitForMessage("Recording into ~/ostrel/journal");
    typeFor(13s);
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
    EXPECT_EQ(outcome.output, QByteArray());

    const QList<QByteArray> lines = outcome.messages.trimmed().split('\n');
    static const QRegularExpression summary(
        QStringLiteral("^callbacks=(\\d+) accepted=(\\d+) buffered=\\d+ missingContext=0 invalid=0 missingPixel=0 "
                       "throttled=\\d+ downsampleFailed=0 unchanged=\\d+ jpegFailed=0$"));
    const auto match = summary.match(QString::fromUtf8(lines.last()));
    ASSERT_TRUE(match.hasMatch()) << lines.last().toStdString();
    EXPECT_GE(match.captured(2).toInt(), 3) << "what was typed has been seen";

    const std::string journal = m_ostrel.journal().toStdString();
    EXPECT_THAT(journal, HasSubstr("## Session "));
    EXPECT_THAT(journal, HasSubstr("start_time: "));
    EXPECT_THAT(journal, HasSubstr("Release checklist"));
    EXPECT_THAT(journal, HasSubstr("<!-- key:"));
    EXPECT_EQ(spooledFiles(), QStringList());
    expectNoObserverStays();
    const auto entries = m_ostrel.run({QStringLiteral("journal")});
    EXPECT_THAT(entries.output.toStdString(), HasSubstr("Release checklist"));
}

TEST_F(Recording, terminatedBySignal_flushesStopsAndLosesNothing)
{
    m_ostrel.start(record);
    m_ostrel.waitForMessage("Recording into");
    typeFor(13s);
    m_ostrel.terminate();
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("callbacks="));
    EXPECT_THAT(m_ostrel.journal().toStdString(), HasSubstr("Release checklist"));
    EXPECT_EQ(spooledFiles(), QStringList());
    expectNoObserverStays();
}

TEST_F(Recording, secondRecorder_isRefusedAndNamesTheFirst)
{
    m_ostrel.start(record);
    m_ostrel.waitForMessage("Recording into");
    const auto second = m_ostrel.run(record);
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.messages.toStdString(), HasSubstr("is recording already (process "));
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
    m_ostrel.start(recordFor(1));
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0) << "the lock is free again";
}

TEST_F(Recording, observerKilled_endsTheRecordingWithStatus1)
{
    m_ostrel.start(record);
    m_ostrel.waitForMessage("Recording into");
    for (const qint64 process : observerProcesses())
        ::kill(pid_t(process), SIGKILL);
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("ostrel: "));
    expectNoObserverStays();
}

TEST_F(Recording, withoutNode_saysSoAndEnds)
{
    QDir().mkpath(m_ostrel.path(QStringLiteral("bin")));
    m_ostrel.environment().insert(QStringLiteral("PATH"), m_ostrel.path(QStringLiteral("bin")));
    if (QFile::exists(QStringLiteral("/usr/local/bin/node")))
        GTEST_FAIL() << "this machine has a node in /usr/local/bin, where the observer always looks";
    const auto outcome = m_ostrel.run(record);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), MatchesRegex("ostrel: [^\n]*\"node\"[^\n]*Install it[^\n]*\n"));
}

TEST_F(Recording, serverGone_endsWithStatus1AndKeepsTheSpool)
{
    m_ostrel.start(record);
    m_ostrel.waitForMessage("Recording into");
    m_desktop.server().kill();
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("Screen capture failed repeatedly for Display 1 (main): "));
    expectNoObserverStays();
}

/// A program of another user that takes every connection to our port and notes what it is sent.
class Stranger
{
public:
    Stranger()
    {
        int ends[2];
        if (::pipe(ends) != 0)
            failTest(QStringLiteral("no pipe"));
        m_process = ::fork();
        if (m_process == 0)
            serve(ends[1]);
        ::close(ends[1]);
        m_reports = ends[0];
        if (::read(m_reports, &m_port, sizeof m_port) != ssize_t(sizeof m_port))
            failTest(QStringLiteral("the stranger could not listen"));
    }

    ~Stranger()
    {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
        ::close(m_reports);
    }

    int port() const { return m_port; }
    /// How many bytes it was sent until now.
    qsizetype receivedBytes() const
    {
        ::kill(m_process, SIGKILL); // the end of the pipe ends the reading
        char bytes[4096];
        qsizetype total = 0;
        for (ssize_t n = 0; (n = ::read(m_reports, bytes, sizeof bytes)) > 0;)
            total += n;
        return total;
    }

private:
    [[noreturn]] static void serve(int reports)
    {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(1);
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0); // its owner is who makes it
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (::bind(listener, reinterpret_cast<sockaddr *>(&address), length) != 0 || ::listen(listener, 8) != 0 ||
            ::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) != 0)
            ::_exit(1);
        const int port = ntohs(address.sin_port);
        ssize_t written = ::write(reports, &port, sizeof port);
        while (written > 0) {
            const int connection = ::accept(listener, nullptr, nullptr);
            char bytes[4096];
            for (ssize_t n = 0; (n = ::read(connection, bytes, sizeof bytes)) > 0;)
                written = ::write(reports, bytes, size_t(n));
            ::close(connection);
        }
        ::_exit(0);
    }

    int m_reports = -1;
    int m_port = 0;
    pid_t m_process = -1;
};

TEST_F(Recording, portTakenByAnotherUser_sendsNothingAndNamesThePort)
{
    ASSERT_EQ(::getuid(), 0U) << "only root can be another user for a test";
    const Stranger stranger;
    m_ostrel.writeSettings({}, stranger.port());
    const auto outcome = m_ostrel.run(record);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(),
                HasSubstr("Port " + std::to_string(stranger.port()) + " is in use by another program"));
    EXPECT_EQ(stranger.receivedBytes(), 0);
}

} // namespace
