#include "RealObserverFixture.h"

#include <QRegularExpression>
#include <QSet>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

const QList<RecordingEnd> requested{RecordingEnd::Requested};
const QList<RecordingEnd> captureFailed{RecordingEnd::CaptureFailed};
const QList<RecordingEnd> observerEnded{RecordingEnd::ObserverEnded};

QString words(Fault fault)
{
    return faultError(fault).localizedDescription;
}

class RealObserverKilled : public RealObserver
{
protected:
    void expectEnded()
    {
        EXPECT_EQ(m_ends, observerEnded);
        EXPECT_EQ(m_model->helperError(), StatusTexts::observerEnded());
        EXPECT_FALSE(m_model->isRecording());
        EXPECT_FALSE(m_model->stoppingRecording());
    }
    /// Each line's key, in the journal's order.
    QStringList keys() const
    {
        QStringList found;
        static const QRegularExpression key(QStringLiteral("<!-- key:([0-9a-z-]+) -->"));
        for (const auto &match : key.globalMatch(QString::fromUtf8(journal())))
            found.append(match.captured(1));
        return found;
    }
    QStringList spooled() const
    {
        QStringList names;
        for (const char *folder : {"incoming", "pending", "quarantine"}) {
            const QDir directory(m_home.path(QStringLiteral(".ostrel/observer/") + QString::fromLatin1(folder)));
            names += directory.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
        }
        return names;
    }
};

TEST_F(RealObserverKilled, whileRecording_nothingAcknowledgedIsLostAndTheNextRecordingGoesOn)
{
    record(QStringLiteral("Chapter one"));
    simulate(21s);
    ASSERT_EQ(m_transport.answered(postFrames), 4);
    EXPECT_EQ(lineCount(QStringLiteral("## Session")), 1) << "the first chunks are analysed already";
    killObserver();
    EXPECT_TRUE(m_model->isRecording()) << "nobody has noticed yet";
    meetTheSuccessor();
    expectEnded();
    EXPECT_EQ(m_launcher.processes().size(), 2);
    awaitLine(QStringLiteral("Chapter one"));

    record(QStringLiteral("Chapter two"));
    EXPECT_EQ(m_model->helperError(), std::nullopt);
    simulate(21s);
    m_model->stopRecording();
    awaitEnd();
    EXPECT_EQ(m_ends, requested);
    EXPECT_EQ(lineCount(QStringLiteral("Chapter one")), 1);
    EXPECT_EQ(lineCount(QStringLiteral("Chapter two")), 1);
    EXPECT_EQ(spooled(), QStringList());
}

TEST_F(RealObserverKilled, atTwentyMoments_everyAcknowledgedLineIsThereOnce)
{
    constexpr int momentCount = 20;
    const auto title = [](int moment) { return QStringLiteral("Chapter %1").arg(moment + 10); };
    for (int moment = 0; moment < momentCount; ++moment) {
        SCOPED_TRACE(moment);
        const int before = m_transport.answered(postFrames);
        record(title(moment));
        simulate(20s + moment / 4 * 500ms);
        ASSERT_GE(m_transport.answered(postFrames) - before, 4) << "twenty seconds of this title are safe";
        // Between two batches, in the moment of a batch, in a batch that is half way, and in a stop that flushes.
        if (moment % 4 == 1)
            m_clock.advance(5s);
        if (moment % 4 == 2) {
            freezeObserver(); // so that it stays half way
            m_clock.advance(5s);
            awaitDelivery(postFrames);
        }
        if (moment % 4 == 3)
            m_model->stopRecording();
        killObserver();
        arrive();
        meetTheSuccessor();
        awaitEnd();
        expectEnded();
        awaitLine(title(moment));
    }
    m_model->quit();
    ASSERT_TRUE(pumpUntil([this] { return m_terminated; }));
    ASSERT_TRUE(pumpUntil([this] { return livingChildren() == 0; }));
    for (int moment = 0; moment < momentCount; ++moment)
        EXPECT_EQ(lineCount(title(moment)), 1) << title(moment).toStdString();
    const QStringList all = keys();
    EXPECT_EQ(all.size(), QSet<QString>(all.begin(), all.end()).size()) << "a line was written twice";
    EXPECT_EQ(spooled(), QStringList());
}

TEST_F(RealObserverKilled, withTheStartOnItsWay_startFailsAndTheNextOneWorks)
{
    awaitObserver();
    arrive();
    m_transport.onSend = [this](const QString &endpoint) {
        if (endpoint == postStart)
            freezeObserver();
    };
    m_model->toggleRecording();
    awaitDelivery(postStart);
    m_transport.onSend = nullptr;
    killObserver();
    awaitEnd();
    EXPECT_EQ(m_ends, QList{RecordingEnd::StartFailed});
    EXPECT_EQ(m_startCount, 0);
    meetTheSuccessor();
    EXPECT_FALSE(m_model->isRecording());
    record(QStringLiteral("Chapter one"));
    EXPECT_TRUE(m_model->isRecording());
}

TEST_F(RealObserverKilled, withTheStopOnItsWay_stopIsCompletedAndTheLinesCome)
{
    record(QStringLiteral("Chapter one"));
    simulate(20s);
    emptyTheBuffer();
    freezeObserver();
    m_model->stopRecording();
    awaitDelivery(postStop);
    killObserver();
    awaitEnd();
    expectEnded();
    meetTheSuccessor();
    expectEnded();
    awaitLine(QStringLiteral("Chapter one"));
}

TEST_F(RealObserverKilled, withTheFinalFlushOnItsWay_stopIsCompletedAndTheLinesCome)
{
    record(QStringLiteral("Chapter one"));
    simulate(23s); // a picture since the last batch
    freezeObserver();
    m_model->stopRecording();
    awaitDelivery(postFrames);
    killObserver();
    awaitEnd();
    expectEnded();
    meetTheSuccessor();
    expectEnded();
    awaitLine(QStringLiteral("Chapter one"));
}

TEST_F(RealObserverKilled, beforeAQuit_theLinesAreWrittenOnRequest)
{
    record(QStringLiteral("Chapter one"));
    simulate(21s);
    killObserver();
    m_model->quit();
    ASSERT_TRUE(pumpUntil([this] { return m_terminated; }));
    expectEnded();
    ASSERT_EQ(m_launcher.processes().size(), 1) << "quitting starts nothing";
    bool isDone = false;
    TaskScope tasks;
    tasks.spawn([this, &isDone](std::stop_token stop) -> Task<> {
        co_await m_model->writeLeftovers(std::move(stop));
        isDone = true;
    });
    awaitObserver();
    m_clock.advance(250ms); // the first attempt came too early
    ASSERT_TRUE(pumpUntil([&isDone] { return isDone; }));
    EXPECT_EQ(lineCount(QStringLiteral("Chapter one")), 1);
    EXPECT_EQ(spooled(), QStringList());
    EXPECT_TRUE(pumpUntil([this] { return livingChildren() == 0; }));
}

class RealObserverHangs : public RealObserver
{
protected:
    /// Lets what was delivered time out.
    void timeOut()
    {
        m_clock.advance(60s);
        settle();
    }
};

TEST_F(RealObserverHangs, whileIdle_pollsTimeOutAndRecoverWithIt)
{
    awaitObserver();
    simulate(3s);
    ASSERT_TRUE(m_model->status());
    freezeObserver();
    m_clock.advance(1500ms);
    awaitDelivery(getStatus);
    timeOut();
    EXPECT_EQ(m_model->helperError(), QStringLiteral("Starting recording service\u2026"));
    EXPECT_EQ(m_launcher.processes().size(), 1) << "it lives";
    thawObserver();
    simulate(3s);
    EXPECT_EQ(m_model->helperError(), std::nullopt);
}

TEST_F(RealObserverHangs, duringAStop_isGivenUpAfterThreeMinutesAndComesToRestWhenItGoesOn)
{
    record(QStringLiteral("Chapter one"));
    simulate(23s);
    freezeObserver();
    m_model->stopRecording();
    // The last batch, then the recorder's stop, then the model's.
    for (int call = 0; call < 3; ++call) {
        EXPECT_TRUE(m_ends.isEmpty());
        awaitDelivery(call == 0 ? postFrames : postStop);
        timeOut();
    }
    EXPECT_EQ(m_ends, captureFailed);
    EXPECT_EQ(m_model->helperError(), words(Fault::TimedOut));
    EXPECT_FALSE(m_model->stoppingRecording());
    thawObserver();
    EXPECT_TRUE(pumpUntil([this] {
        m_clock.advance(100ms); // polls go on while it catches up
        return !m_model->isRecording();
    }));
    EXPECT_EQ(m_ends, captureFailed);
}

TEST_F(RealObserverHangs, duringAStart_aQuitIsOverAfterAMinuteAndTheChildEndsWhenItGoesOn)
{
    awaitObserver();
    arrive();
    freezeObserver();
    m_model->toggleRecording();
    awaitDelivery(getStatus);
    m_model->quit();
    awaitDelivery(postStop);
    EXPECT_FALSE(m_terminated);
    timeOut();
    EXPECT_TRUE(m_terminated);
    EXPECT_EQ(m_ends, requested);
    EXPECT_EQ(livingChildren(), 1) << "nobody kills it";
    thawObserver();
    EXPECT_TRUE(pumpUntil([this] { return livingChildren() == 0; }));
}

TEST_F(RealObserverHangs, whileRecording_aQuitIsOverAfterThreeMinutes)
{
    record(QStringLiteral("Chapter one"));
    simulate(23s);
    freezeObserver();
    m_model->quit();
    for (int call = 0; call < 3; ++call) {
        EXPECT_FALSE(m_terminated);
        awaitDelivery(call == 0 ? postFrames : postStop);
        timeOut();
    }
    EXPECT_TRUE(m_terminated);
    thawObserver();
    EXPECT_TRUE(pumpUntil([this] { return livingChildren() == 0; }));
    awaitLine(QStringLiteral("Chapter one"));
}

class RealCrashLoop : public RealObserver
{
protected:
    void SetUp() override
    {
        const QString program = m_home.path(QStringLiteral("Observer/dist/observer.mjs"));
        ASSERT_TRUE(QDir().mkpath(QFileInfo(program).path()));
        ASSERT_TRUE(writeFileAtomically(program, "process.exit(1);"));
        build(m_home.path(QStringLiteral("Observer")));
    }
};

TEST_F(RealCrashLoop, everyChildEndsAtOnce_isStartedAtMostEveryFiveSeconds)
{
    arrive();
    for (int poll = 1; poll <= 20; ++poll) {
        const pid_t child = m_launcher.processes().constLast();
        ASSERT_TRUE(pumpUntil([child] { return !isAlive(child); }));
        simulate(1500ms);
        EXPECT_EQ(m_model->helperError(), QStringLiteral("Starting recording service\u2026"));
    }
    EXPECT_GE(m_launcher.processes().size(), 1 + 5);
    EXPECT_LE(m_launcher.processes().size(), 1 + 1 + 6) << "30 s, and the first restart comes at once";
}

TEST_F(RealCrashLoop, recordingIsAskedFor_failsWithTheTransportsWords)
{
    arrive();
    m_model->toggleRecording();
    EXPECT_TRUE(pumpUntil([this] {
        m_clock.advance(250ms);
        return !m_ends.isEmpty();
    }));
    EXPECT_EQ(m_ends, QList{RecordingEnd::StartFailed});
    EXPECT_EQ(m_startCount, 0);
}

} // namespace
