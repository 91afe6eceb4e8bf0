#include "OstrelProgram.h"

#include "support/Printers.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QRegularExpression>
#include <QSet>
#include <QThread>

#include <gmock/gmock.h>

#include <csignal>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// What is said, whatever of it is seen first.
const QByteArray endedUnexpectedly =
    "ostrel: The observer ended unexpectedly, and the recording with it. Frames that it had not taken over yet are "
    "lost; those that it had are safe and are written when it runs next.";

/// `ostrel record` on a real desktop, whose observer is killed. A batch every half second, and the observer keeps the
/// picture of each frame that it has analysed.
class ObserverOfTheProgram : public testing::Test
{
protected:
    ObserverOfTheProgram()
    {
        m_ostrel.writeSettings(QByteArray("\"chunkSizeMs\": 500, \"frameFps\": 10, ") + OstrelProgram::keepAnalysed);
        m_desktop.startTerminal(QStringLiteral("Release checklist"));
    }

    /// Records until the moment, and kills the observer.
    void recordAndKill(std::chrono::milliseconds moment)
    {
        m_ostrel.start({QStringLiteral("record")});
        m_ostrel.waitForMessage("Recording into");
        m_desktop.type(QStringLiteral("word "));
        QThread::msleep(quint64(moment.count())); // of the program's own, real time
        signalObservers(SIGKILL);
    }
    void signalObservers(int signal)
    {
        for (const qint64 process : m_ostrel.observers())
            ::kill(pid_t(process), signal);
    }
    /// Stops each observer that is started in the next second, long before it could listen.
    void freezeSuccessors()
    {
        const QDeadlineTimer end(1s);
        while (!end.hasExpired())
            signalObservers(SIGSTOP);
    }

    void expectOneEndWithTheWords(const OstrelProgram::Outcome &outcome)
    {
        EXPECT_EQ(outcome.status, 1);
        const QList<QByteArray> lines = outcome.messages.trimmed().split('\n');
        // Where writing what is left takes long, that is said as well.
        ASSERT_THAT(lines.size(), testing::AnyOf(3, 4)) << outcome.messages.toStdString();
        EXPECT_TRUE(lines[0].startsWith("Recording into ")) << lines[0].toStdString();
        EXPECT_EQ(lines[1], endedUnexpectedly);
        EXPECT_TRUE(lines[2].startsWith("callbacks=")) << lines[2].toStdString();
        if (lines.size() == 4)
            EXPECT_THAT(lines[3].toStdString(), testing::EndsWith("A second signal ends at once."));
    }

    /// The batches that lie in the spool: each was taken over as a whole.
    QSet<QString> batchesTakenOver() const
    {
        QSet<QString> batches;
        for (const QString &name : m_ostrel.spooled()) {
            if (name.startsWith(QLatin1String("incoming/")) && !name.endsWith(QLatin1String(".partial")))
                batches.insert(name.section(QLatin1Char('/'), 1));
        }
        return batches;
    }

    void expectEachAnalysedOnce(const QSet<QString> &batches)
    {
        EXPECT_EQ(m_ostrel.spooled(), QStringList());
        const QStringList frames = m_ostrel.analysedFrames();
        EXPECT_EQ(frames.size(), QSet<QString>(frames.begin(), frames.end()).size()) << "a frame was analysed twice";
        QSet<QString> analysed;
        for (const QString &frame : frames)
            analysed.insert(frame.section(QLatin1Char('-'), 0, 0));
        EXPECT_EQ(batches - analysed, QSet<QString>()) << "a batch that was taken over is lost";
    }

    VirtualDesktop m_desktop{{.size = {640, 480}, .windowManager = true}};
    OstrelProgram m_ostrel{m_desktop.environment()};
};

/// Each covers five of twenty moments, a tenth of a second apart.
class ObserverKilledAt : public ObserverOfTheProgram, public testing::WithParamInterface<int>
{};

TEST_P(ObserverKilledAt, fiveMoments_sayTheSameEndWithStatus1AndLoseNothingTakenOver)
{
    QSet<QString> batches;
    for (int i = 0; i < 5; ++i) {
        const std::chrono::milliseconds moment((GetParam() * 5 + i) * 100);
        SCOPED_TRACE(moment.count());
        recordAndKill(moment);
        batches += batchesTakenOver();
        expectOneEndWithTheWords(m_ostrel.waitForEnd());
        m_ostrel.expectNoObserverStays();
        expectEachAnalysedOnce(batches); // it need not wait for the next recording
    }
    EXPECT_EQ(m_ostrel.run({QStringLiteral("record"), QStringLiteral("--seconds"), QStringLiteral("1")}).status, 0);
    m_ostrel.expectNoObserverStays();
    expectEachAnalysedOnce(batches);
    if (GetParam() > 0)
        EXPECT_FALSE(batches.isEmpty()) << "after half a second something has been taken over";
}

INSTANTIATE_TEST_SUITE_P(Recording, ObserverKilledAt, testing::Range(0, 4));

TEST_F(ObserverOfTheProgram, killedAndTheProgramInterruptedAtOnce_saysTheSame)
{
    recordAndKill(700ms);
    const auto batches = batchesTakenOver();
    m_ostrel.signal(SIGINT);
    expectOneEndWithTheWords(m_ostrel.waitForEnd());
    m_ostrel.expectNoObserverStays();
    expectEachAnalysedOnce(batches);
}

TEST_F(ObserverOfTheProgram, killedInTheMiddleOfTheStop_saysTheSameAndEachFrameIsAnalysedOnce)
{
    m_ostrel.start({QStringLiteral("record")});
    m_ostrel.waitForMessage("Recording into");
    m_desktop.type(QStringLiteral("word "));
    QThread::msleep(700); // of the program's own, real time
    signalObservers(SIGSTOP);
    m_desktop.type(QStringLiteral("more ")); // for a last batch, which is not answered
    QThread::msleep(200);
    const auto batches = batchesTakenOver();
    m_ostrel.signal(SIGINT);
    m_ostrel.waitForMessage("Waiting for the observer to finish.");
    signalObservers(SIGKILL);
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages.count(endedUnexpectedly), 1) << outcome.messages.toStdString();
    m_ostrel.expectNoObserverStays();
    expectEachAnalysedOnce(batches);
    EXPECT_FALSE(m_ostrel.analysedFrames().isEmpty());
}

TEST_F(ObserverOfTheProgram, killedAndTheProgramTerminatedAtOnce_saysTheSameAndTheNextRecordingWritesIt)
{
    recordAndKill(700ms);
    const auto batches = batchesTakenOver();
    m_ostrel.terminate(); // the session may be ending: there is no time to write what is left
    expectOneEndWithTheWords(m_ostrel.waitForEnd());
    m_ostrel.expectNoObserverStays();
    EXPECT_EQ(m_ostrel.run({QStringLiteral("record"), QStringLiteral("--seconds"), QStringLiteral("1")}).status, 0);
    m_ostrel.expectNoObserverStays();
    expectEachAnalysedOnce(batches);
}

TEST_F(ObserverOfTheProgram, killedAndItsSuccessorHangs_isToldAndGivenUpAndTheNextRecordingWritesIt)
{
    recordAndKill(700ms);
    const auto batches = batchesTakenOver();
    m_ostrel.waitForMessage("callbacks="); // nothing else is said before the successor is started
    freezeSuccessors();
    m_ostrel.waitForMessage("Writing what the observer had taken over. A second signal ends at once.\n");
    m_ostrel.waitForMessage("ostrel: what the observer had taken over could not be written now; it is written with "
                            "the next recording\n");
    EXPECT_EQ(m_ostrel.waitForEnd().status, 1);
    signalObservers(SIGCONT);
    m_ostrel.expectNoObserverStays();
    EXPECT_EQ(m_ostrel.run({QStringLiteral("record"), QStringLiteral("--seconds"), QStringLiteral("1")}).status, 0);
    m_ostrel.expectNoObserverStays();
    expectEachAnalysedOnce(batches);
}

} // namespace
