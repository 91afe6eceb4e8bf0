#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"
#include "support/StrangersListener.h"

#include <QDir>
#include <QJsonObject>

#include <gmock/gmock.h>

#include <csignal>

using namespace ostrel;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

const QStringList status{QStringLiteral("status")};

/// A desktop to record, in front of which one asks from a second terminal.
class Status : public testing::Test
{
protected:
    void startRecording()
    {
        m_ostrel.start({QStringLiteral("record")});
        m_ostrel.waitForMessage("Recording into ~/ostrel/journal");
    }
    OstrelProgram::Outcome ask() const { return m_ostrel.run(status); }

    VirtualDesktop m_desktop{{.size = {640, 400}}};
    OstrelProgram m_ostrel{m_desktop.environment()};
};

TEST_F(Status, nothingRunning_isStatus1AndNamesTheCommand)
{
    m_ostrel.writeSettings();
    const QByteArray settings = readFile(m_ostrel.path(QStringLiteral(".ostrel/settings.json"))).value();
    const auto outcome = ask();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, QByteArray());
    EXPECT_EQ(outcome.messages,
              QByteArray("ostrel: The observer is not running: nothing is being recorded. Try: ostrel record\n"));
    EXPECT_EQ(QDir(m_ostrel.path(QStringLiteral(".ostrel"))).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList(QStringLiteral("settings.json")))
        << "neither a token nor a log was made";
    EXPECT_EQ(readFile(m_ostrel.path(QStringLiteral(".ostrel/settings.json"))).value(), settings);
}

TEST_F(Status, secretInTheSettings_staysWhereItIs)
{
    m_ostrel.writeSettings("\"byokGoogleVertexApiKey\": \"abc\"");
    const QByteArray settings = readFile(m_ostrel.path(QStringLiteral(".ostrel/settings.json"))).value();
    ask();
    EXPECT_EQ(readFile(m_ostrel.path(QStringLiteral(".ostrel/settings.json"))).value(), settings);
}

TEST_F(Status, whileRecording_isTheObserversOwnWord)
{
    m_ostrel.writeSettings();
    startRecording();
    const auto outcome = ask();
    EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
    EXPECT_THAT(outcome.output.toStdString(), MatchesRegex("state        recording since ..:..:..\n"
                                                           "last chunk   none yet\n"
                                                           "backlog      nothing waits to be analysed\n"
                                                           "(last action  [^\n]*\n)?last error   none\n"));
    const QJsonObject json = m_ostrel.json(status).object();
    EXPECT_EQ(json.size(), 11);
    EXPECT_EQ(json.value(QStringLiteral("recorderError")), QJsonValue(QJsonValue::Null));
    EXPECT_EQ(json.value(QStringLiteral("running")), true);
    EXPECT_TRUE(json.value(QStringLiteral("sessionId")).isString());
    EXPECT_TRUE(json.value(QStringLiteral("lastChunkAt")).isNull());
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
    EXPECT_EQ(ask().status, 1) << "with the recording its observer has ended";
}

TEST_F(Status, observerThatHangs_isNamedAfterABoundedWait)
{
    m_ostrel.writeSettings();
    startRecording();
    ASSERT_EQ(m_ostrel.observers().size(), 1);
    const qint64 process = m_ostrel.observers().first();
    ::kill(pid_t(process), SIGSTOP);
    const auto outcome = ask();
    ::kill(pid_t(process), SIGCONT);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(),
                HasSubstr("The observer (process " + std::to_string(process) + ") does not answer."));
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
}

TEST_F(Status, observerOfAnotherHome_isToldByItsRefusal)
{
    m_ostrel.writeSettings();
    startRecording();
    OstrelProgram another(m_desktop.environment());
    another.environment().insert(QStringLiteral("HOME"), m_desktop.path(QStringLiteral("data")));
    const QByteArray settings = readFile(m_ostrel.path(QStringLiteral(".ostrel/settings.json"))).value();
    ASSERT_TRUE(writeFileAtomically(another.path(QStringLiteral(".ostrel/settings.json")), settings).has_value());
    ASSERT_TRUE(writeFileAtomically(another.path(QStringLiteral(".ostrel/secrets.json")),
                                    R"({"tamsk-ostrel-local-api": {"default": "a token of its own"}})")
                    .has_value());
    const auto outcome = another.run(status);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("refuses our token: it was started from another home"));
    m_ostrel.terminate();
    EXPECT_EQ(m_ostrel.waitForEnd().status, 0);
}

TEST_F(Status, portOfAnotherUser_isNamedAndGetsNothing)
{
    ASSERT_EQ(::geteuid(), 0U) << "only root can be another user for a test";
    StrangersListener stranger;
    m_ostrel.writeSettings({}, stranger.port());
    const auto outcome = ask();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("Port " + std::to_string(stranger.port()) + " is used by "));
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("ostrel settings set localPort "));
    EXPECT_EQ(stranger.finish(), 0) << "not even a connection";
}

TEST_F(Status, settingsLeftAside_areSaidForThePortIsAnotherThen)
{
    m_ostrel.writeSettings("\"chunkSizeMs\": \"soon\"");
    const auto outcome = ask();
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("settings.json is left aside: "));
    EXPECT_THAT(outcome.messages.toStdString(), HasSubstr("chunkSizeMs"));
}

} // namespace
