#include "app/ObserverQuestion.h"

#include "observer/TokenStore.h"
#include "support/FakeSecretStore.h"
#include "support/HttpTestServer.h"
#include "support/Printers.h"
#include "support/StrangersListener.h"

#include <gmock/gmock.h>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

/// Asks servers of this very process, which is no observer.
class ObserverQuestion : public testing::Test
{
protected:
    ObserverAnswer ask(qint64 port, std::chrono::milliseconds patience = 20s)
    {
        ObserverSettings settings = ObserverSettings::defaults();
        settings.localPort = port;
        return askObserver(m_secrets, settings, patience);
    }
    /// What one is told about a program that answers like this.
    ObserverAnswer askOneThatSays(const QByteArray &response)
    {
        const HttpTestServer server(HttpTestServer::always(response));
        return ask(server.port());
    }
    static std::string sentence(const ObserverAnswer &answer) { return adviceOn(answer).sentence.toStdString(); }
    static std::string command(const ObserverAnswer &answer)
    {
        return adviceOn(answer).command.value_or(QString()).toStdString();
    }

    FakeSecretStore m_secrets;
};

TEST_F(ObserverQuestion, answer_isDecodedAndTheTokenIsSentOnce)
{
    m_secrets.put(localApiTokenService, QStringLiteral("token"));
    const HttpTestServer server(
        HttpTestServer::always(HttpTestServer::response(200, R"({"running":true,"chunkIndex":3})")));
    const ObserverAnswer answer = ask(server.port());
    ASSERT_EQ(answer.reach, ObserverReach::Answers);
    EXPECT_EQ(answer.status->chunkIndex, 3);
    ASSERT_EQ(server.requests().size(), 1);
    EXPECT_EQ(server.requests()[0].line, QByteArray("GET /api/status HTTP/1.1"));
    EXPECT_EQ(server.requests()[0].header("x-ostrel-local-token"), QList<QByteArray>{"token"});
}

TEST_F(ObserverQuestion, noToken_isNotMade)
{
    askOneThatSays(HttpTestServer::response(401, {}));
    EXPECT_EQ(m_secrets.calls(), QStringList(QStringLiteral("read ") + localApiTokenService));
}

TEST_F(ObserverQuestion, nobodyThere_isNotRunningAndNoSecretIsRead)
{
    quint16 port = 0;
    {
        const HttpTestServer gone({});
        port = gone.port();
    }
    const ObserverAnswer answer = ask(port);
    EXPECT_EQ(answer.reach, ObserverReach::NotRunning);
    EXPECT_EQ(m_secrets.calls(), QStringList());
    EXPECT_THAT(sentence(answer), HasSubstr("nothing is being recorded"));
    EXPECT_EQ(command(answer), "ostrel record");
}

TEST_F(ObserverQuestion, portThatIsNone_isNamed)
{
    for (const qint64 port : {qint64(0), qint64(-1), qint64(65'536), qint64(99'999)}) {
        const ObserverAnswer answer = ask(port);
        EXPECT_EQ(answer.reach, ObserverReach::NoPort) << port;
        EXPECT_THAT(sentence(answer), HasSubstr("localPort is " + std::to_string(port)));
        EXPECT_THAT(command(answer), HasSubstr("ostrel settings set localPort "));
    }
}

TEST_F(ObserverQuestion, programOfAnotherUser_getsNothingAndIsNamed)
{
    ASSERT_EQ(::geteuid(), 0U) << "only root can be another user for a test";
    StrangersListener stranger;
    const ObserverAnswer answer = ask(stranger.port());
    EXPECT_EQ(answer.reach, ObserverReach::AnotherUsers);
    EXPECT_THAT(sentence(answer), HasSubstr("of the user nobody"));
    EXPECT_EQ(stranger.finish(), 0) << "not even a connection";
}

TEST_F(ObserverQuestion, otherPrograms_areToldFromTheObserver)
{
    for (const QByteArray &response : {HttpTestServer::response(200, "<html>hello</html>"),
                                       HttpTestServer::response(200, "{}"), HttpTestServer::response(404, "{}"),
                                       HttpTestServer::response(302, {}), QByteArray("220 mail ready\r\n\r\n")}) {
        const ObserverAnswer answer = askOneThatSays(response);
        EXPECT_EQ(answer.reach, ObserverReach::NotAnObserver) << response.toStdString();
        EXPECT_EQ(answer.holder->processId, QCoreApplication::applicationPid());
        EXPECT_THAT(sentence(answer), HasSubstr("test_app (process "));
        EXPECT_THAT(sentence(answer), HasSubstr("is not the observer"));
        EXPECT_THAT(command(answer), HasSubstr("ostrel settings set localPort "));
    }
}

TEST_F(ObserverQuestion, refusedToken_isToldApart)
{
    m_secrets.put(localApiTokenService, QStringLiteral("of another home"));
    const ObserverAnswer answer = askOneThatSays(HttpTestServer::response(401, "{}"));
    EXPECT_EQ(answer.reach, ObserverReach::TokenRefused);
    EXPECT_THAT(sentence(answer), HasSubstr("refuses our token"));
}

TEST_F(ObserverQuestion, tokenThatCannotBeRead_isTheReasonRatherThanTheRefusal)
{
    m_secrets.setFaults({.reads = true});
    const ObserverAnswer answer = askOneThatSays(HttpTestServer::response(401, "{}"));
    EXPECT_THAT(sentence(answer), HasSubstr("its token cannot be read: There is no permission to use \"keyring\""));
}

TEST_F(ObserverQuestion, silence_endsWithThePatience)
{
    const HttpTestServer mute([](const auto &, QTcpSocket &) {});
    const ObserverAnswer answer = ask(mute.port(), 50ms);
    EXPECT_EQ(answer.reach, ObserverReach::Silent);
    EXPECT_THAT(sentence(answer), HasSubstr("does not answer"));
}

TEST_F(ObserverQuestion, observerWithOurTokenRefusedOrSilent_isNotMovedToAnotherPort)
{
    ObserverAnswer answer;
    answer.port = 8799;
    answer.holder = PortHolder{.user = 0,
                               .userName = QStringLiteral("root"),
                               .processId = 4711,
                               .commandLine = {QStringLiteral("node"), QStringLiteral("dist/observer.mjs")}};
    answer.reach = ObserverReach::TokenRefused;
    EXPECT_THAT(sentence(answer), HasSubstr("another home folder"));
    EXPECT_EQ(command(answer), "kill 4711");
    answer.reach = ObserverReach::Silent;
    EXPECT_THAT(sentence(answer), HasSubstr("The observer (process 4711) does not answer."));
    EXPECT_EQ(command(answer), "kill -KILL 4711");
}

} // namespace
