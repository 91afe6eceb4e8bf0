#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"
#include "support/StrangersListener.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <gmock/gmock.h>

#include <csignal>
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
    EXPECT_EQ(m_ostrel.spooled(), QStringList());
    m_ostrel.expectNoObserverStays();
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
    EXPECT_EQ(m_ostrel.spooled(), QStringList());
    m_ostrel.expectNoObserverStays();
}

TEST_F(Recording, hangUpUnderNohup_isIgnoredAndOtherwiseEndsIt)
{
    m_ostrel.startThrough(QStringLiteral("nohup"), record);
    m_ostrel.waitForMessage("Recording into");
    m_ostrel.signal(SIGHUP);
    m_ostrel.terminate();
    // A hang-up that was not ignored would make this the second signal, which ends at once with status 1.
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);

    m_ostrel.start(record);
    m_ostrel.waitForMessage("Recording into");
    m_ostrel.signal(SIGHUP);
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
}

TEST_F(Recording, folderThatCannotBeWritten_isToldAtOnce)
{
    m_ostrel.writeSettings("\"outputDirectory\": \"/proc/journal\"");
    m_ostrel.start(recordFor(1));
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("\"/proc/journal\" cannot be written"));
}

TEST_F(Recording, portThatIsNone_isNamed)
{
    m_ostrel.writeSettings({}, 99999);
    const auto outcome = m_ostrel.run(record);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, QByteArray("ostrel: The address \"http://127.0.0.1:99999\" is not a valid URL.\n"));
}

TEST_F(Recording, observerThatHangsAtTheEnd_isExplainedAndASecondSignalEndsIt)
{
    m_ostrel.start(record);
    m_ostrel.waitForMessage("Recording into");
    const QList<qint64> observers = m_ostrel.observers();
    for (const qint64 process : observers)
        ::kill(pid_t(process), SIGSTOP);
    m_ostrel.terminate();
    m_ostrel.waitForMessage("A second signal ends at once");
    m_ostrel.terminate();
    const auto outcome = m_ostrel.waitForEnd();
    for (const qint64 process : observers)
        ::kill(pid_t(process), SIGCONT);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("ended at once"));
    m_ostrel.expectNoObserverStays();
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
    for (const qint64 process : m_ostrel.observers())
        ::kill(pid_t(process), SIGKILL);
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("ostrel: "));
    m_ostrel.expectNoObserverStays();
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
    m_ostrel.expectNoObserverStays();
}

TEST_F(Recording, portTakenByAnotherUser_sendsNothingAndNamesThePort)
{
    ASSERT_EQ(::geteuid(), 0U) << "only root can be another user for a test";
    StrangersListener stranger;
    m_ostrel.writeSettings({}, stranger.port());
    const auto outcome = m_ostrel.run(record);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(),
                HasSubstr("Port " + std::to_string(stranger.port()) + " is in use by another program"));
    EXPECT_EQ(stranger.finish(), 0) << "not even a connection";
}

} // namespace
