#include "LastBatch.h"

#include "support/Printers.h"

#include <QElapsedTimer>

#include <gmock/gmock.h>

using namespace ostrel;
using testing::HasSubstr;
using testing::Not;

namespace {

/// The program of the tray, whose toolkit ends with its display server, as it does at a logout.
class LostScreen : public LastBatch
{
protected:
    void record()
    {
        recordFromTheStart();
        m_ostrel.start({});
        m_ostrel.waitForMessage("screen capture screenshot polling started");
        m_desktop.startTerminal(QStringLiteral("Shell"));
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
