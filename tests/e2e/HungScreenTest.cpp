#include "LastBatch.h"

#include "support/Printers.h"

#include <QElapsedTimer>
#include <QThread>

#include <gmock/gmock.h>

#include <csignal>

using namespace ostrel;
using testing::HasSubstr;
using testing::Not;

namespace {

/// The programs on a real display server that stops to answer, as one whose driver hangs.
class HungScreen : public LastBatch
{
protected:
    void TearDown() override
    {
        m_desktop.server().thaw();
        LastBatch::TearDown();
    }

    void record(const QStringList &options = {})
    {
        m_ostrel.start(QStringList(QStringLiteral("record")) + options);
        m_ostrel.waitForMessage("Recording into");
        m_ostrel.waitForMessage("screen capture screenshot polling started");
    }
    /// Long enough for a picture to be under way.
    void freezeScreen()
    {
        m_desktop.server().freeze();
        QThread::msleep(500); // of the program's own, real time
    }
    /// @return how it ended, within the time that the system waits for us
    OstrelProgram::Outcome promptEnd()
    {
        QElapsedTimer time;
        time.start();
        const auto outcome = m_ostrel.waitForEnd();
        EXPECT_LT(time.elapsed(), 5'000);
        return outcome;
    }
    void expectAllHandedOver(const OstrelProgram::Outcome &outcome)
    {
        // Whether a picture was under way depends on whether there was anything new to be seen.
        const std::string messages = outcome.messages.toStdString();
        const bool pictureHung = outcome.messages.contains("The screen did not answer when the recording ended.");
        EXPECT_EQ(outcome.status, pictureHung ? 1 : 0) << messages;
        EXPECT_THAT(messages, Not(HasSubstr("lost")));
        EXPECT_GT(OstrelProgram::framesHandedOver(outcome.messages), 0) << messages;
        m_ostrel.expectNoObserverStays();
        EXPECT_EQ(m_ostrel.analysedFrames().size(), OstrelProgram::framesHandedOver(outcome.messages)) << messages;
    }
};

TEST_F(HungScreen, recordingThatIsTerminated_endsWithinFiveSecondsAndAllIsHandedOver)
{
    record();
    freezeScreen();
    m_ostrel.terminate();
    expectAllHandedOver(promptEnd());
}

TEST_F(HungScreen, recordingThatIsInterrupted_endsWithinFiveSecondsAndAllIsHandedOver)
{
    record();
    freezeScreen();
    m_ostrel.signal(SIGINT);
    expectAllHandedOver(promptEnd());
}

TEST_F(HungScreen, recordingWhoseTimeIsOver_endsAndAllIsHandedOver)
{
    record({QStringLiteral("--seconds"), QStringLiteral("2")});
    freezeScreen();
    expectAllHandedOver(m_ostrel.waitForEnd());
}

TEST_F(HungScreen, recordingThatIsTerminatedWhileItsObserverHangsToo_endsWithinFiveSecondsAndSaysWhatMayBeLost)
{
    record();
    freezeScreen();
    freezeObserver();
    m_ostrel.terminate();
    const auto outcome = promptEnd();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("lost"));
}

TEST_F(HungScreen, applicationThatIsTerminated_endsWithinFiveSeconds)
{
    m_ostrel.start({});
    m_ostrel.waitForMessage("This desktop shows no tray.");
    freezeScreen();
    m_ostrel.terminate();
    static_cast<void>(promptEnd());
}

TEST_F(HungScreen, serverThatAnswersAgain_isRecordedByTheNextRecording)
{
    record();
    freezeScreen();
    m_ostrel.terminate();
    expectAllHandedOver(promptEnd());
    m_desktop.server().thaw();
    record();
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
}

} // namespace
