#include "ModelFixture.h"
#include "platform/logind/LogindEvents.h"
#include "support/RunTask.h"
#include "support/ScopedVariable.h"
#include "support/TestLogind.h"

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// A recording that runs on a machine whose sleep a logind tells, over a bus.
class RealSleep : public RunningRecording
{
protected:
    RealSleep()
    {
        m_displays.onShareableContent = [this, show = m_displays.onShareableContent]() -> Result<ShareableContent> {
            const int attempt = ++m_starts;
            if (attempt <= m_startsThatFail)
                return std::unexpected(Error{{}, 0, QStringLiteral("attempt %1").arg(attempt)});
            return show();
        };
        QObject::connect(&m_logindEvents, &WorkspaceEvents::willSleep, &m_workspace, &WorkspaceEvents::willSleep);
        QObject::connect(&m_logindEvents, &WorkspaceEvents::didWake, &m_workspace, &WorkspaceEvents::didWake);
        QObject::connect(&m_workspace, &WorkspaceEvents::willSleep, [this] { ++m_sleeps; });
        QObject::connect(&m_workspace, &WorkspaceEvents::didWake, [this] { ++m_wakes; });
        waitForInhibitors(1);
    }

    void waitForInhibitors(int count)
    {
        EXPECT_TRUE(pumpUntil([&] { return m_logind.inhibitorCount() == count; })) << m_logind.inhibitorCount();
    }
    /// Announces it, and waits until all that follows from it at once has happened.
    void announceSleep()
    {
        const int before = m_sleeps;
        m_logind.prepareForSleep(true);
        ASSERT_TRUE(pumpUntil([&] { return m_sleeps > before; }));
        settle();
    }
    void wake()
    {
        const int before = m_wakes;
        m_logind.prepareForSleep(false);
        ASSERT_TRUE(pumpUntil([&] { return m_wakes > before; }));
        settle();
    }
    /// Sleeps as soon as the final flush is through.
    void sleep()
    {
        m_observer.expect(postFrames, statusAnswer(true));
        announceSleep();
        waitForInhibitors(0);
    }
    void expectRecordingGoesOn()
    {
        EXPECT_EQ(m_events, QStringList());
        EXPECT_TRUE(m_recorder->isCapturing());
        EXPECT_EQ(m_model->recoveryPolicy(), CaptureRecoveryPolicy());
    }

    SystemBus m_systemBus;
    const ScopedVariable m_session{"XDG_SESSION_ID", QByteArray(TestLogind::sessionId)};
    TestLogind m_logind{m_systemBus};
    LogindEvents m_logindEvents{{.system = m_systemBus.address(), .session = {}, .firstPause = 20ms},
                                std::make_unique<ManualClock>([] {})};
    int m_sleeps = 0;
    int m_wakes = 0;
    std::atomic<int> m_starts = 0; ///< of capture, after the first
    std::atomic<int> m_startsThatFail = 0;
};

TEST_F(RealSleep, sleepWhileRecording_waitsForTheFinalFlushAndTheWakeRecordsOn)
{
    const auto batch = m_observer.expectHeld(postFrames);
    announceSleep();
    ASSERT_TRUE(batch->hasArrived());
    EXPECT_EQ(m_logind.inhibitorCount(), 1);
    batch->release(statusAnswer(true));
    settle();
    waitForInhibitors(0);
    EXPECT_FALSE(m_recorder->isCapturing());
    EXPECT_EQ(commands(), QStringList(postFrames)) << "the observer is not asked to stop";
    wake();
    EXPECT_EQ(m_starts, 1);
    expectRecordingGoesOn();
    waitForInhibitors(1);
}

TEST_F(RealSleep, sleepTwice_isOneStartAtTheWake)
{
    sleep();
    announceSleep();
    wake();
    EXPECT_EQ(m_starts, 1);
    expectRecordingGoesOn();
}

TEST_F(RealSleep, wakeWithoutSleep_isNothing)
{
    wake();
    EXPECT_EQ(m_starts, 0);
    EXPECT_EQ(commands(), QStringList());
    expectRecordingGoesOn();
}

TEST_F(RealSleep, threeDeathsDuringSleep_nothingUntilTheWakeThenOneBudgetOfFive)
{
    sleep();
    m_startsThatFail = 5;
    for (int death = 0; death < 3; ++death)
        m_recorder->onStreamsDied(QStringLiteral("gone"));
    advance(60s);
    EXPECT_EQ(m_starts, 0);
    wake();
    m_observer.expect(postStop, statusAnswer(false));
    advance(8s);
    m_observer.always(getStatus, statusAnswer(false));
    advance(60s);
    EXPECT_EQ(m_starts, 5);
    EXPECT_EQ(m_events, QStringList(captureFailed));
    EXPECT_EQ(m_model->helperError(), text("attempt 5"));
}

} // namespace
