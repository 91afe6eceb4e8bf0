#include "TransportRig.h"

#include "base/Fault.h"
#include "base/SerialQueue.h"
#include "base/TaskSlot.h"
#include "observer/LocalObserverAPI.h"

#include <QNetworkProxy>
#include <QNetworkProxyFactory>

#include <array>

using namespace ostrel;

namespace {

const QByteArray idleStatus = R"({"running":false,"chunkIndex":0})";

using Transport = TransportRig;

TEST_F(Transport, get_carriesOurHeadersAndNoContentType)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    const Answer answer = send({.method = "GET",
                                .url = server.url(QStringLiteral("/api/status")),
                                .headers = {{"X-Ostrel-Local-Token", "t"}},
                                .body = {}});
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->statusCode, 200);
    EXPECT_EQ(answer->body, QByteArray("{}"));
    const Request &request = server.requests().first();
    EXPECT_EQ(request.line, QByteArray("GET /api/status HTTP/1.1"));
    EXPECT_EQ(request.header("x-ostrel-local-token"), QList<QByteArray>{"t"});
    EXPECT_EQ(request.header("host"), QList<QByteArray>{"127.0.0.1:" + QByteArray::number(server.port())});
    for (const char *name : {"content-type", "cookie", "authorization", "origin", "referer", "transfer-encoding"})
        EXPECT_TRUE(request.header(name).isEmpty()) << name;
}

TEST_F(Transport, postWithoutBody_hasNoContentTypeAndLengthZero)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    ASSERT_TRUE(send({.method = "POST", .url = server.url(QStringLiteral("/api/stop")), .headers = {}, .body = {}}));
    const Request &request = server.requests().first();
    EXPECT_EQ(request.line, QByteArray("POST /api/stop HTTP/1.1"));
    EXPECT_TRUE(request.header("content-type").isEmpty());
    EXPECT_EQ(request.header("content-length"), QList<QByteArray>{"0"});
}

TEST_F(Transport, bodyOfAnySize_arrivesWhole)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    for (const qsizetype size : {1, 16384, 5'000'000}) {
        QByteArray body(size, 'x');
        body[size - 1] = 'y';
        ASSERT_TRUE(send(
            {.method = "PUT", .url = server.url(), .headers = {{"Content-Type", "application/json"}}, .body = body}));
        EXPECT_EQ(server.requests().last().header("content-type"), QList<QByteArray>{"application/json"});
        EXPECT_TRUE(server.requests().last().body == body) << size;
    }
}

TEST_F(Transport, requestsThatOnlyAsk_shareAConnection)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(get(server.url()).has_value());
    EXPECT_EQ(server.connectionCount(), 1);
    EXPECT_EQ(server.requests().size(), 3);
}

TEST_F(Transport, requestThatChangesSomething_hasAConnectionOfItsOwn)
{
    // Closes what it was asked to close, and says so, as the observer does.
    HttpTestServer server([](const Request &request, QTcpSocket &socket) {
        const bool isLast = request.header("connection").contains("close");
        socket.write(HttpTestServer::response(200, "{}", isLast ? "Connection: close\r\n" : ""));
        if (isLast)
            socket.disconnectFromHost();
    });
    for (const char *method : {"GET", "POST", "PUT", "POST"})
        ASSERT_TRUE(send({.method = method, .url = server.url(), .headers = {}, .body = {}}));
    EXPECT_EQ(server.connectionCount(), 4);
    EXPECT_TRUE(pumpUntil([&] { return server.closedCount() == 3; }));
    ASSERT_TRUE(get(server.url()).has_value());
    EXPECT_EQ(server.connectionCount(), 4) << "the shared one is still there";
}

TEST_F(Transport, sharedConnectionThatWasClosedMeanwhile_isReplaced)
{
    QTcpSocket *connection = nullptr;
    HttpTestServer server([&](const Request &, QTcpSocket &socket) {
        connection = &socket;
        socket.write(HttpTestServer::response(200, "{}"));
    });
    ASSERT_TRUE(get(server.url()).has_value());
    connection->disconnectFromHost();
    ASSERT_TRUE(pumpUntil([&] { return server.closedCount() == 1; }));
    // In the very moment of its end it may still be used, once.
    if (const auto answer = get(server.url()); !answer)
        EXPECT_TRUE(isFault(answer.error(), Fault::ConnectionClosed));
    EXPECT_TRUE(get(server.url()).has_value());
    EXPECT_EQ(server.connectionCount(), 2);
}

TEST_F(Transport, requestsAtTheSameTime_doNotWaitForEachOther)
{
    QList<QTcpSocket *> waiting;
    HttpTestServer server([&](const Request &, QTcpSocket &socket) {
        waiting.append(&socket);
        for (int i = 0; waiting.size() == 3 && i < 3; ++i)
            waiting[i]->write(HttpTestServer::response(200, "{}"));
    });
    int answered = 0;
    std::array<TaskSlot, 3> slots;
    for (TaskSlot &slot : slots) {
        slot.start([&](std::stop_token stop) -> Task<> {
            const Answer answer =
                co_await m_transport.send({.method = "GET", .url = server.url(), .headers = {}, .body = {}}, stop);
            answered += answer.has_value() ? 1 : 0;
        });
    }
    EXPECT_TRUE(pumpUntil([&] { return answered == 3; }));
}

TEST_F(Transport, answerInChunks_isReadToItsEnd)
{
    HttpTestServer server([](const Request &, QTcpSocket &socket) {
        socket.write("HTTP/1.1 200 OK\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n"
                     "3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n");
        socket.disconnectFromHost();
    });
    const Answer answer = get(server.url());
    ASSERT_TRUE(answer.has_value()) << answer.error().localizedDescription.toStdString();
    EXPECT_EQ(answer->body, QByteArray("abcde"));
}

TEST_F(Transport, answerOutside2xx_comesWithItsHeadAndItsBodyIsNeverRead)
{
    for (const int status : {404, 500, 501, 503}) {
        // A body is announced and never comes: who wanted to read it would wait.
        HttpTestServer server(HttpTestServer::always("HTTP/1.1 " + QByteArray::number(status) +
                                                     " Reason\r\n"
                                                     "Content-Length: 100\r\n\r\n{\"running\":"));
        const Answer answer = get(server.url());
        ASSERT_TRUE(answer.has_value()) << status;
        EXPECT_EQ(answer->statusCode, status);
        EXPECT_EQ(answer->body, QByteArray());
        EXPECT_EQ(server.requests().size(), 1);
    }
}

TEST_F(Transport, demandForAPassword_isAnAnswerLikeAnyOther)
{
    HttpTestServer server(
        HttpTestServer::always(HttpTestServer::response(401, idleStatus, "WWW-Authenticate: Basic realm=\"x\"\r\n")));
    const Answer answer = get(server.url());
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->statusCode, 401);
    EXPECT_EQ(answer->body, QByteArray());
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_F(Transport, redirect_isABadResponseAndCarriesTheTokenNowhere)
{
    HttpTestServer target(HttpTestServer::always(HttpTestServer::response(200, idleStatus)));
    const QByteArray location = "Location: " + target.url(QStringLiteral("/api/status")).toEncoded() + "\r\n";
    SerialQueue worker(QStringLiteral("worker"));
    for (const int status : {301, 302, 303, 307, 308}) {
        HttpTestServer server([&](const Request &, QTcpSocket &socket) {
            socket.write(HttpTestServer::response(status, idleStatus, location));
            socket.disconnectFromHost();
        });
        LocalObserverAPI api(server.url(), QStringLiteral("token"), m_transport, worker);
        const auto result = runTask<Result<ObserverStatus>>([&](auto stop) { return api.status(stop); });
        ASSERT_TRUE(result && !*result);
        EXPECT_TRUE(isFault(result->error(), Fault::BadServerResponse)) << status;
        // Whoever followed would be on the way by the time the first connection has gone.
        EXPECT_TRUE(pumpUntil([&] { return server.closedCount() == 1; }));
        EXPECT_EQ(server.connectionCount(), 1);
    }
    EXPECT_EQ(target.connectionCount(), 0);
}

TEST_F(Transport, errorAnswerWithAValidRecord_isABadServerResponse)
{
    SerialQueue worker(QStringLiteral("worker"));
    for (const int status : {401, 500}) {
        HttpTestServer server(HttpTestServer::always(HttpTestServer::response(status, idleStatus)));
        LocalObserverAPI api(server.url(), QStringLiteral("token"), m_transport, worker);
        const auto result = runTask<Result<ObserverStatus>>([&](auto stop) { return api.stopRecording(stop); });
        ASSERT_TRUE(result && !*result);
        EXPECT_TRUE(isFault(result->error(), Fault::BadServerResponse)) << status;
    }
}

TEST_F(Transport, cookieOfAnAnswer_isNotSentBack)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}", "Set-Cookie: a=b; Path=/\r\n")));
    ASSERT_TRUE(get(server.url()).has_value());
    ASSERT_TRUE(get(server.url()).has_value());
    EXPECT_TRUE(server.requests().last().header("cookie").isEmpty());
}

/// A desktop that wants everything to go through one proxy, as one does that listens to the environment's wishes.
class DesktopProxy final : public QNetworkProxyFactory
{
public:
    explicit DesktopProxy(quint16 port) : m_proxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), port) {}
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &) override { return {m_proxy}; }

private:
    const QNetworkProxy m_proxy;
};

TEST_F(Transport, proxiesOfEnvironmentAndDesktop_areIgnored)
{
    HttpTestServer proxy(HttpTestServer::always(HttpTestServer::response(200, R"({"proxy":1})")));
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    const std::array names = {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"};
    for (const char *name : names)
        qputenv(name, proxy.url().toEncoded());
    QNetworkProxyFactory::setApplicationProxyFactory(new DesktopProxy(proxy.port()));
    NetworkTransport transport(m_clock);
    const auto answer = runTask<Answer>([&](auto stop) {
        return transport.send({.method = "GET", .url = server.url(), .headers = {}, .body = {}}, stop);
    });
    QNetworkProxyFactory::setApplicationProxyFactory(nullptr);
    for (const char *name : names)
        qunsetenv(name);
    EXPECT_EQ(answer->value().body, QByteArray("{}"));
    EXPECT_EQ(proxy.connectionCount(), 0);
}

} // namespace
