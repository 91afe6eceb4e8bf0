#include "LastBatch.h"

#include "support/Printers.h"

#include <csignal>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// The program of the tray in a session that a session manager ends.
class Logout : public LastBatch
{
protected:
    Logout()
    {
        m_ostrel.environment().insert(QStringLiteral("SESSION_MANAGER"),
                                      QString::fromLatin1(m_manager.readLine(patience)));
    }

    /// Starts it, and waits until the session manager knows it.
    void start()
    {
        m_ostrel.start({});
        EXPECT_EQ(m_manager.readLine(patience), "registered");
        m_ostrel.waitForMessage("This desktop shows no tray.");
    }
    OstrelProgram::Outcome logOut()
    {
        ::kill(pid_t(m_manager.pid()), SIGUSR1);
        auto outcome = m_ostrel.waitForEnd();
        EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
        m_ostrel.expectNoObserverStays();
        return outcome;
    }

    static constexpr std::chrono::milliseconds patience{20'000};

    TestProcess m_manager{{.program = QStringLiteral("/usr/bin/python3"),
                           .arguments = {QStringLiteral(OSTREL_FIXTURES "/../support/session-manager")},
                           .environment = m_desktop.environment(),
                           .logFile = m_desktop.path(QStringLiteral("session-manager.log"))}};
};

TEST_F(Logout, recordingApplication_endsWithItsLastFlushAndNothingIsLost)
{
    recordFromTheStart();
    start();
    m_ostrel.waitForMessage("screen capture screenshot polling started");
    m_desktop.startTerminal(QStringLiteral("Shell"));
    const auto outcome = logOut();
    EXPECT_GT(OstrelProgram::framesHandedOver(outcome.messages), 0) << outcome.messages.toStdString();
    EXPECT_EQ(m_ostrel.analysedFrames().size(), OstrelProgram::framesHandedOver(outcome.messages));
    EXPECT_EQ(m_ostrel.spooled(), QStringList());
}

TEST_F(Logout, restingApplication_ends)
{
    start();
    EXPECT_EQ(OstrelProgram::framesHandedOver(logOut().messages), 0);
}

} // namespace
