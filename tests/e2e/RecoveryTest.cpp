#include "OstrelProgram.h"

#include "support/Printers.h"

#include <QElapsedTimer>

#include <gmock/gmock.h>

#include <csignal>

using namespace ostrel;
using testing::HasSubstr;

namespace {

/// `ostrel record` on a real desktop of two monitors, ten pictures a second, telling what its capture does.
class InterruptedRecording : public testing::Test
{
protected:
    using Monitor = VirtualDesktop::Monitor;

    InterruptedRecording()
    {
        m_desktop.setMonitors({m_left, m_right});
        m_ostrel.writeSettings(QByteArray("\"frameFps\": 10, ") + OstrelProgram::keepAnalysed);
        m_ostrel.tellOfCapture();
        m_ostrel.start({QStringLiteral("record")});
        m_ostrel.waitForMessage("Recording into");
    }

    /// What was handed over is analysed, all of it and once. The journal itself is silent about so few seconds.
    void expectEverythingAnalysed(const OstrelProgram::Outcome &outcome) const
    {
        const QStringList frames = m_ostrel.analysedFrames();
        EXPECT_FALSE(frames.isEmpty());
        EXPECT_EQ(frames.size(), OstrelProgram::framesHandedOver(outcome.messages)) << outcome.messages.toStdString();
        EXPECT_EQ(m_ostrel.spooled(), QStringList());
    }

    void waitForBatch() const
    {
        waitUntil(QStringLiteral("the first batch"), std::chrono::seconds(60),
                  [this] { return !m_ostrel.spooled().isEmpty(); });
    }

    /// Stops the observer's process, so that it answers nothing, until the end of the test.
    void freezeObserver()
    {
        m_frozen = m_ostrel.observers();
        ASSERT_FALSE(m_frozen.isEmpty());
        for (const qint64 process : m_frozen)
            ::kill(pid_t(process), SIGSTOP);
    }
    void TearDown() override
    {
        for (const qint64 process : m_frozen)
            ::kill(pid_t(process), SIGCONT);
        m_ostrel.expectNoObserverStays();
    }

    const Monitor m_left{.name = QStringLiteral("Left"), .pixels = {0, 0, 400, 300}, .hasConnector = true};
    const Monitor m_right{.name = QStringLiteral("Right"), .pixels = {400, 0, 400, 300}};
    VirtualDesktop m_desktop{{.size = {800, 300}}};
    OstrelProgram m_ostrel{m_desktop.environment()};
    QList<qint64> m_frozen;
};

TEST_F(InterruptedRecording, monitorUnpluggedAndPluggedInAgain_isRecordedOn)
{
    m_ostrel.waitForMessage("screen capture starting displays=2");
    m_desktop.setMonitors({m_left});
    m_ostrel.waitForMessage("screen capture starting displays=1");
    m_desktop.setMonitors({m_left, m_right});
    m_ostrel.waitForMessage("screen capture starting displays=2", 2);
    m_ostrel.terminate();
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 0);
    expectEverythingAnalysed(outcome);
}

TEST_F(InterruptedRecording, serverThatIsGone_isGivenUpAndWhatWasRecordedIsAnalysed)
{
    waitForBatch();
    m_desktop.server().kill();
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages.count("screen capture interrupted: "), 1) << outcome.messages.toStdString();
    expectEverythingAnalysed(outcome);
}

TEST_F(InterruptedRecording, terminatedWhileTheObserverHangs_endsWithinFiveSecondsAndSaysWhatMayBeLost)
{
    m_ostrel.waitForMessage("screen capture starting");
    freezeObserver();
    QElapsedTimer time;
    time.start();
    m_ostrel.terminate();
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_LT(time.elapsed(), 5'000);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("they may be lost"));
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("screen capture ended before the observer took frames="));
}

TEST_F(InterruptedRecording, hangUpsAndATerminationOfOneSessionsEnd_areOneOrderlyEnd)
{
    waitForBatch();
    m_ostrel.signal(SIGHUP);
    m_ostrel.signal(SIGHUP);
    m_ostrel.terminate();
    const auto outcome = m_ostrel.waitForEnd();
    EXPECT_EQ(outcome.status, 0);
    expectEverythingAnalysed(outcome);
}

} // namespace
