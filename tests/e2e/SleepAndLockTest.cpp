#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"
#include "support/TestLogind.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonObject>
#include <QThread>

#include <gmock/gmock.h>

#include <csignal>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::Gt;
using testing::HasSubstr;
using testing::Le;
using testing::Not;

namespace {

/// `ostrel record` of a screen that never rests, ten pictures a second, in a session that a logind of our own tells
/// of. Only an end of capture hands anything to the observer, and the observer keeps it until the recording's end.
class WatchedSession : public testing::Test
{
protected:
    WatchedSession()
    {
        m_ostrel.writeSettings(QByteArray("\"frameFps\": 10, \"chunkSizeMs\": 3600000, ") +
                               OstrelProgram::keepAnalysed);
        m_ostrel.tellOfCapture();
        QProcessEnvironment &environment = m_ostrel.environment();
        environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), QString::fromLatin1(m_systemBus.address()));
        environment.insert(QStringLiteral("XDG_SESSION_ID"), QLatin1String(TestLogind::sessionId));
        keepTheScreenBusy();
        m_ostrel.start({QStringLiteral("record")});
        m_ostrel.waitForMessage("Recording into");
        waitForInhibitors(1);
    }
    ~WatchedSession() override { signalObserver(SIGCONT); }
    void TearDown() override { m_ostrel.expectNoObserverStays(); }

    /// Returns when the screen, seen or not, has changed that many times: twenty times a second.
    void waitForScreenChanges(int count) const
    {
        const qint64 enough = screenChanges() + count;
        waitUntil(QStringLiteral("the screen to change"), 20s, [&] { return screenChanges() >= enough; });
    }
    void waitForInhibitors(int count) const
    {
        waitUntil(QStringLiteral("%1 inhibitors").arg(count), 20s, [&] { return m_logind.inhibitorCount() == count; });
    }

    /// The times at which those pictures were taken that the observer has.
    QList<qint64> timesOfFrames() const
    {
        QList<qint64> times;
        for (const QString &name : m_ostrel.spooled()) {
            const QString list = m_ostrel.path(QStringLiteral(".ostrel/observer/%1/frames.jsonl").arg(name));
            // The first line tells of the batch as a whole.
            const QList<QByteArray> lines = readFile(list).value_or(QByteArray()).trimmed().split('\n');
            for (const QByteArray &line : lines.mid(1))
                times.append(QJsonDocument::fromJson(line)[QStringLiteral("receivedAtMs")].toInteger());
        }
        return times;
    }

    QString sessionId() const
    {
        return m_ostrel.json({QStringLiteral("status")})[QStringLiteral("sessionId")].toString();
    }

    void signalObserver(int signal) const
    {
        for (const qint64 process : m_ostrel.observers())
            ::kill(pid_t(process), signal);
    }

    /// Waits until it has ended, as it should: whole.
    OstrelProgram::Outcome waitForOrderlyEnd()
    {
        auto outcome = m_ostrel.waitForEnd();
        EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
        EXPECT_EQ(m_ostrel.analysedFrames().size(), OstrelProgram::framesHandedOver(outcome.messages));
        EXPECT_EQ(m_ostrel.spooled(), QStringList());
        return outcome;
    }

    static qint64 now() { return QDateTime::currentMSecsSinceEpoch(); }

    SystemBus m_systemBus;
    TestLogind m_logind{m_systemBus};
    VirtualDesktop m_desktop{{.size = {640, 400}, .windowManager = true}};
    OstrelProgram m_ostrel{m_desktop.environment()};

private:
    QString changesFile() const { return m_desktop.path(QStringLiteral("changes")); }
    qint64 screenChanges() const { return QFileInfo(changesFile()).size(); }

    /// A terminal that scrolls by a line of another colour, again and again, and adds a byte to a file each time.
    void keepTheScreenBusy()
    {
        const QString script =
            QStringLiteral("i=0; while :; do i=$((i + 1)); printf '\\033[%dm%80s\\n' $((41 + i % 6)) ''; "
                           "echo >> %1; sleep 0.05; done")
                .replace(QLatin1String("%1"), changesFile());
        m_desktop.start(QStringLiteral("xterm"),
                        {QStringLiteral("-e"), QStringLiteral("sh"), QStringLiteral("-c"), script});
        waitForScreenChanges(1);
    }
};

TEST_F(WatchedSession, sleep_waitsUntilTheObserverHasTheLastPicturesAndCapturesNothingUntilTheWake)
{
    const QString session = sessionId();
    waitForScreenChanges(5);
    signalObserver(SIGSTOP);
    m_logind.prepareForSleep(true);
    m_ostrel.waitForMessage("screen capture submitting frames=");
    EXPECT_EQ(m_logind.inhibitorCount(), 1) << "the observer has not taken them over yet";
    EXPECT_EQ(timesOfFrames(), QList<qint64>());
    signalObserver(SIGCONT);
    waitForInhibitors(0);
    const qint64 asleepAt = now();
    const QList<qint64> before = timesOfFrames();
    EXPECT_THAT(before, AllOf(Not(testing::IsEmpty()), Each(Le(asleepAt))));

    waitForScreenChanges(10);
    const qint64 wakeAt = now();
    m_logind.prepareForSleep(false);
    waitForInhibitors(1);
    m_ostrel.waitForMessage("screen capture starting", 2);
    EXPECT_EQ(sessionId(), session);
    waitForScreenChanges(5);
    m_logind.prepareForSleep(true); // the second sleep's last pictures tell what the first one's end has brought
    waitForInhibitors(0);
    const QList<qint64> all = timesOfFrames();
    EXPECT_GT(all.size(), before.size());
    EXPECT_THAT(all.mid(before.size()), Each(testing::Ge(wakeAt)));
    EXPECT_EQ(all.mid(0, before.size()), before);
    m_ostrel.terminate();
    waitForOrderlyEnd();
}

TEST_F(WatchedSession, lock_endsThePicturesUntilTheUnlockAndIsToldOnce)
{
    waitForScreenChanges(5);
    m_logind.setLockedHint(true);
    m_ostrel.waitForMessage("screen capture paused");
    waitForScreenChanges(2); // the picture that was just being taken
    const qint64 lockedAt = now();
    waitForScreenChanges(10);
    const qint64 unlockAt = now();
    m_logind.setLockedHint(false);
    m_ostrel.waitForMessage("screen capture goes on after a pause");
    waitForScreenChanges(20);
    m_logind.prepareForSleep(true); // hands over what has gathered
    waitForInhibitors(0);
    const QList<qint64> times = timesOfFrames();
    EXPECT_THAT(times, Contains(Le(lockedAt)));
    EXPECT_THAT(times, Contains(Gt(unlockAt)));
    EXPECT_THAT(times, Each(testing::AnyOf(Le(lockedAt), testing::Ge(unlockAt))));
    m_ostrel.terminate();
    EXPECT_EQ(waitForOrderlyEnd().messages.count("screen capture paused"), 1);
}

TEST_F(WatchedSession, recordingOfALockedSession_endsWithStatus1AndSaysWhyThereIsNoPicture)
{
    m_ostrel.terminate();
    waitForOrderlyEnd();
    m_logind.setLockedHint(true);
    m_ostrel.start({QStringLiteral("record")});
    m_ostrel.waitForMessage("Recording into");
    m_ostrel.signal(SIGINT);
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages.count("ostrel: No picture was recorded: The session was locked.\n"), 1)
        << outcome.messages.toStdString();
    EXPECT_EQ(OstrelProgram::framesHandedOver(outcome.messages), 0);
}

TEST_F(WatchedSession, shutdown_endsTheProgramInTimeWithItsJournalWritten)
{
    QThread::sleep(11); // of the program's own, real time: of less than ten seconds the journal says nothing
    QElapsedTimer time;
    time.start();
    m_logind.prepareForShutdown(true);
    const auto outcome = waitForOrderlyEnd();
    EXPECT_LT(time.elapsed(), 5'000);
    EXPECT_GT(OstrelProgram::framesHandedOver(outcome.messages), 0);
    EXPECT_EQ(m_logind.inhibitorCount(), 0);
    EXPECT_THAT(m_ostrel.journal().toStdString(), AllOf(HasSubstr("## Session "), HasSubstr("XTerm")));
}

} // namespace
