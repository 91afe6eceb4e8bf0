#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"

#include <QElapsedTimer>

#include <gmock/gmock.h>

#include <csignal>

using namespace ostrel;
using testing::HasSubstr;
using testing::Not;

namespace {

/// The program of the tray, whose toolkit ends with its display server, as it does at a logout. Ten pictures a second,
/// a batch every minute: what was recorded is handed over at the end, or never.
class LostScreen : public testing::Test
{
protected:
    LostScreen()
    {
        m_ostrel.writeSettings(QByteArray("\"frameFps\": 10, \"chunkSizeMs\": 60000, ") + OstrelProgram::keepAnalysed);
        m_ostrel.tellOfCapture();
    }
    void TearDown() override
    {
        for (const qint64 process : m_frozenObservers)
            ::kill(pid_t(process), SIGCONT);
        m_ostrel.expectNoObserverStays();
    }

    /// Has it record without anybody who presses a button.
    void record()
    {
        ASSERT_TRUE(writeFileAtomically(m_ostrel.path(QStringLiteral(".ostrel/resume-recording")), {}));
        m_ostrel.start({});
        m_ostrel.waitForMessage("screen capture screenshot polling started");
        m_desktop.startTerminal(QStringLiteral("Shell"));
    }
    void freezeObserver()
    {
        m_frozenObservers = m_ostrel.observers();
        ASSERT_FALSE(m_frozenObservers.isEmpty());
        for (const qint64 process : m_frozenObservers)
            ::kill(pid_t(process), SIGSTOP);
    }
    /// @return how it ended, in 4 s and what a busy machine adds, far below the time that a request may take
    OstrelProgram::Outcome endOfTheServer()
    {
        QElapsedTimer time;
        time.start();
        m_desktop.server().kill();
        auto outcome = m_ostrel.waitForEnd();
        EXPECT_LT(time.elapsed(), 15'000);
        EXPECT_EQ(outcome.status, 1);
        return outcome;
    }

    VirtualDesktop m_desktop{{.size = {640, 480}}};
    OstrelProgram m_ostrel{m_desktop.environment()};
    QList<qint64> m_frozenObservers;
};

TEST_F(LostScreen, recordingApplication_endsWithItsLastFlushAndNothingIsLost)
{
    record();
    const auto outcome = endOfTheServer();
    EXPECT_THAT(outcome.messages.toStdString(), Not(HasSubstr("may be lost")));
    EXPECT_GT(OstrelProgram::framesHandedOver(outcome.messages), 0) << outcome.messages.toStdString();
    m_ostrel.expectNoObserverStays();
    EXPECT_EQ(m_ostrel.analysedFrames().size(), OstrelProgram::framesHandedOver(outcome.messages));
    EXPECT_EQ(m_ostrel.spooled(), QStringList());
}

TEST_F(LostScreen, recordingApplicationWithItsPanelOpen_losesNothingEither)
{
    record();
    EXPECT_EQ(m_ostrel.run({}).status, 0) << "asks the running one to open its panel";
    m_desktop.waitForWindow(QStringLiteral("Tamsk Ostrel"));
    const auto outcome = endOfTheServer();
    EXPECT_THAT(outcome.messages.toStdString(), Not(HasSubstr("may be lost")));
    EXPECT_GT(OstrelProgram::framesHandedOver(outcome.messages), 0) << outcome.messages.toStdString();
}

TEST_F(LostScreen, recordingApplicationWhoseObserverHangs_endsInTimeAndSaysWhatMayBeLost)
{
    record();
    freezeObserver();
    EXPECT_THAT(endOfTheServer().messages.toStdString(), HasSubstr("they may be lost"));
}

TEST_F(LostScreen, restingApplication_endsByItself)
{
    m_ostrel.start({});
    m_ostrel.waitForMessage("This desktop shows no tray.");
    const auto outcome = endOfTheServer();
    EXPECT_THAT(outcome.messages.toStdString(), Not(HasSubstr("may be lost")));
    EXPECT_EQ(OstrelProgram::framesHandedOver(outcome.messages), 0);
}

} // namespace
