#include "TransportRig.h"

#include "base/Fault.h"
#include "base/TaskSlot.h"

#include <atomic>

using namespace ostrel;

namespace {

using TransportClosed = TransportRig;

TEST_F(TransportClosed, connectionClosedBeforeTheAnswer_failsAndNothingIsSentTwice)
{
    HttpTestServer server([](const Request &, QTcpSocket &socket) { socket.disconnectFromHost(); });
    const QList<HttpRequest> requests = {
        {.method = "GET", .url = server.url(), .headers = {}, .body = {}},
        {.method = "POST", .url = server.url(), .headers = {}, .body = {}},
        {.method = "POST", .url = server.url(), .headers = {}, .body = QByteArray(100'000, 'x')}};
    for (const HttpRequest &request : requests) {
        const Answer answer = send(request);
        ASSERT_FALSE(answer.has_value());
        EXPECT_EQ(answer.error(), faultError(Fault::ConnectionClosed));
    }
    EXPECT_EQ(server.connectionCount(), 3);
    EXPECT_EQ(server.requests().size(), 3);
}

TEST_F(TransportClosed, sharedConnectionClosedAtTheNextRequest_failsAndNothingIsSentTwice)
{
    // Sent again by itself, it would go to whoever has the port by then.
    HttpTestServer server([&server](const Request &, QTcpSocket &socket) {
        if (server.requests().size() == 1)
            socket.write(HttpTestServer::response(200, "{}"));
        else
            socket.disconnectFromHost();
    });
    ASSERT_TRUE(get(server.url()).has_value());
    const Answer answer = get(server.url());
    ASSERT_FALSE(answer.has_value());
    EXPECT_EQ(answer.error(), faultError(Fault::ConnectionClosed));
    settleEvents();
    EXPECT_EQ(server.requests().size(), 2);
    EXPECT_EQ(server.connectionCount(), 1);
}

TEST_F(TransportClosed, sharedConnectionCutOffAtTheNextRequest_failsAndNothingIsSentTwice)
{
    HttpTestServer server([&server](const Request &, QTcpSocket &socket) {
        if (server.requests().size() == 1)
            socket.write(HttpTestServer::response(200, "{}"));
        else
            socket.abort();
    });
    ASSERT_TRUE(get(server.url()).has_value());
    EXPECT_FALSE(get(server.url()).has_value());
    settleEvents();
    EXPECT_EQ(server.requests().size(), 2);
    EXPECT_EQ(server.connectionCount(), 1);
}

TEST_F(TransportClosed, sharedConnectionAfterAFailureElsewhere_isLeftForANewOne)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    HttpTestServer rude([](const Request &, QTcpSocket &socket) { socket.disconnectFromHost(); });
    for (const char *method : {"GET", "POST"}) {
        ASSERT_TRUE(get(server.url()).has_value());
        const int before = server.connectionCount();
        ASSERT_FALSE(send({.method = method, .url = rude.url(), .headers = {}, .body = {}}).has_value());
        EXPECT_TRUE(pumpUntil([&] { return server.closedCount() == before; })) << "the kept one is closed";
        ASSERT_TRUE(get(server.url()).has_value());
        EXPECT_EQ(server.connectionCount(), before + 1);
    }
}

TEST_F(TransportClosed, portThatWasNobodysForAWhile_isReachedByANewConnection)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    std::atomic<PortOwner> owner = PortOwner::OurUser; // asked for on a thread of its own
    NetworkTransport transport(m_clock, [&owner](quint16) -> Result<PortOwner> { return owner.load(); });
    const auto isAnswered = [&] {
        const auto answer = runTask<Answer>([&](auto stop) {
            return transport.send({.method = "GET", .url = server.url(), .headers = {}, .body = {}}, stop);
        });
        return answer && answer->has_value();
    };
    int connections = 0;
    for (const PortOwner meanwhile : {PortOwner::Nobody, PortOwner::AnotherUser}) {
        owner = PortOwner::OurUser;
        ASSERT_TRUE(isAnswered());
        EXPECT_EQ(server.connectionCount(), ++connections);
        owner = meanwhile;
        EXPECT_FALSE(isAnswered());
        EXPECT_TRUE(pumpUntil([&] { return server.closedCount() == connections; }));
    }
}

TEST_F(TransportClosed, requestUnderWayWhenAnotherFails_isAnsweredAllTheSame)
{
    QTcpSocket *waiting = nullptr;
    HttpTestServer slow([&](const Request &, QTcpSocket &socket) { waiting = &socket; });
    HttpTestServer rude([](const Request &, QTcpSocket &socket) { socket.disconnectFromHost(); });
    std::optional<Answer> answer;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> {
        answer = co_await m_transport.send({.method = "GET", .url = slow.url(), .headers = {}, .body = {}}, stop);
    });
    ASSERT_TRUE(pumpUntil([&] { return waiting != nullptr; }));
    ASSERT_FALSE(get(rude.url()).has_value());
    settleEvents();
    waiting->write(HttpTestServer::response(200, "{}"));
    ASSERT_TRUE(pumpUntil([&] { return answer.has_value(); }));
    EXPECT_TRUE(answer->has_value());
    EXPECT_TRUE(pumpUntil([&] { return slow.closedCount() == 1; })) << "and its connection kept for nobody";
}

TEST_F(TransportClosed, serverThatDiesWhileABodyIsOnItsWay_isAClosedConnection)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&server] {
        QTcpSocket *socket = server.nextPendingConnection();
        // What it has not read makes the kernel cut the connection off instead of closing it.
        QObject::connect(socket, &QTcpSocket::readyRead, socket, &QTcpSocket::abort);
    });
    const QUrl url(QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort()));
    for (const qsizetype size : {100, 100'000, 20'000'000}) {
        const Answer answer = send({.method = "POST", .url = url, .headers = {}, .body = QByteArray(size, 'x')});
        ASSERT_FALSE(answer.has_value());
        EXPECT_EQ(answer.error(), faultError(Fault::ConnectionClosed)) << size;
    }
}

TEST_F(TransportClosed, answerWithoutReadingTheBody_isThatAnswerOrAClosedConnection)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&server] {
        QTcpSocket *socket = server.nextPendingConnection();
        socket->write(HttpTestServer::response(409, "{}"));
        socket->disconnectFromHost();
    });
    const QUrl url(QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort()));
    for (int i = 0; i < 60; ++i) {
        const qsizetype size = 1 + i * qsizetype(40'000);
        const Answer answer = send({.method = "POST", .url = url, .headers = {}, .body = QByteArray(size, 'x')});
        if (answer)
            EXPECT_EQ(answer->statusCode, 409);
        else
            EXPECT_EQ(answer.error(), faultError(Fault::ConnectionClosed)) << size;
    }
}

TEST_F(TransportClosed, connectionClosedInTheMiddleOfTheAnswer_fails)
{
    HttpTestServer server([](const Request &, QTcpSocket &socket) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{");
        socket.disconnectFromHost();
    });
    const Answer answer = get(server.url());
    ASSERT_FALSE(answer.has_value());
    EXPECT_EQ(answer.error(), faultError(Fault::ConnectionClosed));
}

TEST_F(TransportClosed, answerThatIsNotHttp_fails)
{
    HttpTestServer server([](const Request &, QTcpSocket &socket) {
        socket.write("SSH-2.0-OpenSSH_9.2\r\n\r\n");
        socket.disconnectFromHost();
    });
    EXPECT_FALSE(get(server.url()).has_value());
}

} // namespace
