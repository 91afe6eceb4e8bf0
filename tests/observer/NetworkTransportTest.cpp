#include "observer/NetworkTransport.h"

#include "base/Fault.h"
#include "base/TaskSlot.h"
#include "observer/LocalObserverAPI.h"
#include "support/HttpTestServer.h"
#include "support/ManualClock.h"
#include "support/Printers.h"
#include "support/RunTask.h"

#include "support/StrangersListener.h"

#include <QNetworkProxy>
#include <QNetworkProxyFactory>

#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

using Answer = Result<HttpAnswer>;
using Request = HttpTestServer::Request;

const QByteArray idleStatus = R"({"running":false,"chunkIndex":0})";

class Transport : public testing::Test
{
protected:
    ~Transport() override { settleEvents(); }

    Answer send(HttpRequest request)
    {
        const auto answer = runTask<Answer>([&](std::stop_token stop) { return m_transport.send(request, stop); });
        EXPECT_TRUE(answer.has_value()) << "the request never ended";
        return answer.value_or(std::unexpected(Error{}));
    }
    Answer get(const QUrl &url) { return send({.method = "GET", .url = url, .headers = {}, .body = {}}); }

    ManualClock m_clock{[] { settleEvents(); }};
    NetworkTransport m_transport{m_clock};
};

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

TEST_F(Transport, eachRequest_asksForAConnectionOfItsOwn)
{
    HttpTestServer server([](const Request &, QTcpSocket &socket) {
        socket.write(HttpTestServer::response(200, "{}", "Connection: close\r\n"));
        socket.disconnectFromHost();
    });
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(get(server.url()).has_value());
    EXPECT_EQ(server.connectionCount(), 3);
    EXPECT_EQ(server.requests().last().header("connection"), QList<QByteArray>{"close"});
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

TEST_F(Transport, nobodyListens_isConnectionRefused)
{
    quint16 port = 0;
    {
        const HttpTestServer gone(HttpTestServer::always({}));
        port = gone.port();
    }
    const QUrl url(QStringLiteral("http://127.0.0.1:%1").arg(port));
    for (const QByteArray &body : {QByteArray(), QByteArray("{}"), QByteArray(1'000'000, 'x')}) {
        const Answer answer = send({.method = "POST", .url = url, .headers = {}, .body = body});
        ASSERT_FALSE(answer.has_value());
        EXPECT_EQ(answer.error(), faultError(Fault::ConnectionRefused)) << body.size();
    }
}

TEST_F(Transport, connectionClosedBeforeTheAnswer_failsAndNothingIsSentTwice)
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

TEST_F(Transport, serverThatDiesWhileABodyIsOnItsWay_isAClosedConnection)
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

TEST_F(Transport, answerWithoutReadingTheBody_isThatAnswerOrAClosedConnection)
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

TEST_F(Transport, connectionClosedInTheMiddleOfTheAnswer_fails)
{
    HttpTestServer server([](const Request &, QTcpSocket &socket) {
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{");
        socket.disconnectFromHost();
    });
    const Answer answer = get(server.url());
    ASSERT_FALSE(answer.has_value());
    EXPECT_EQ(answer.error(), faultError(Fault::ConnectionClosed));
}

TEST_F(Transport, answerThatIsNotHttp_fails)
{
    HttpTestServer server([](const Request &, QTcpSocket &socket) {
        socket.write("SSH-2.0-OpenSSH_9.2\r\n\r\n");
        socket.disconnectFromHost();
    });
    EXPECT_FALSE(get(server.url()).has_value());
}

TEST_F(Transport, serverThatDrips_hasSixtySecondsForAllOfIt)
{
    QTcpSocket *connection = nullptr;
    HttpTestServer server([&](const Request &, QTcpSocket &socket) {
        connection = &socket;
        socket.write("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
    });
    std::optional<Answer> answer;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> {
        answer = co_await m_transport.send({.method = "GET", .url = server.url(), .headers = {}, .body = {}}, stop);
    });
    ASSERT_TRUE(pumpUntil([&] { return connection != nullptr; }));
    for (int second = 0; second < 59; ++second) {
        connection->write("x");
        m_clock.advance(1s);
    }
    m_clock.advance(999ms);
    EXPECT_FALSE(answer.has_value());
    m_clock.advance(1ms);
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->error(), faultError(Fault::TimedOut));
    EXPECT_TRUE(pumpUntil([&] { return server.closedCount() == 1; })) << "the connection is closed";
}

TEST_F(Transport, serverThatNeverAnswers_hasSixtySeconds)
{
    HttpTestServer server([](const Request &, QTcpSocket &) {});
    std::optional<Answer> answer;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> {
        answer = co_await m_transport.send({.method = "GET", .url = server.url(), .headers = {}, .body = {}}, stop);
    });
    ASSERT_TRUE(pumpUntil([&] { return server.requests().size() == 1; }));
    m_clock.advance(60s);
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->error(), faultError(Fault::TimedOut));
}

TEST_F(Transport, answeredRequest_leavesNoTimerBehind)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    ASSERT_TRUE(get(server.url()).has_value());
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

TEST_F(Transport, cancelledRequest_hasEndedWhenCancelReturnsAndItsConnectionCloses)
{
    HttpTestServer server([](const Request &, QTcpSocket &) {});
    std::optional<Answer> answer;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> {
        answer = co_await m_transport.send({.method = "GET", .url = server.url(), .headers = {}, .body = {}}, stop);
    });
    ASSERT_TRUE(pumpUntil([&] { return server.requests().size() == 1; }));
    slot.cancel();
    ASSERT_TRUE(answer.has_value());
    EXPECT_TRUE(isFault(answer->error(), Fault::Cancelled));
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
    EXPECT_TRUE(pumpUntil([&] { return server.closedCount() == 1; }));
}

TEST_F(Transport, stoppedBeforeItBegins_sendsNothing)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    std::stop_source stop;
    stop.request_stop();
    const auto answer = runTask<Answer>([&](std::stop_token) {
        return m_transport.send({.method = "GET", .url = server.url(), .headers = {}, .body = {}}, stop.get_token());
    });
    EXPECT_TRUE(isFault(answer->error(), Fault::Cancelled));
    settleEvents();
    EXPECT_EQ(server.connectionCount(), 0);
}

TEST_F(Transport, strangerOnThePort_getsNoConnectionAndTheErrorNamesThePort)
{
    StrangersListener stranger;
    ASSERT_NE(stranger.port(), 0);
    // Root's stranger is a real one. An ordinary user can't make one, so there we say that we are somebody else.
    NetworkTransport asSomebodyElse(m_clock, [](quint16 port) { return portOwner(port, ::geteuid() + 1); });
    NetworkTransport &transport = ::geteuid() == 0 ? m_transport : asSomebodyElse;
    SerialQueue worker(QStringLiteral("worker"));
    const QUrl url(QStringLiteral("http://127.0.0.1:%1").arg(stranger.port()));
    LocalObserverAPI api(url, QStringLiteral("token"), transport, worker);
    CapturedFramePayload frame;
    frame.videoBase64 = "AAAA";
    const auto status = runTask<Result<ObserverStatus>>([&](auto stop) { return api.status(stop); });
    const auto frames = runTask<Result<ObserverStatus>>([&](auto stop) { return api.submitFrames({frame}, stop); });
    for (const auto &result : {status, frames}) {
        ASSERT_TRUE(result && !*result);
        EXPECT_EQ(result->error().localizedDescription,
                  QStringLiteral("Port %1 is in use by another program").arg(stranger.port()));
        EXPECT_TRUE(isFault(result->error(), Fault::PortTaken));
    }
    EXPECT_EQ(stranger.finish(), 0) << "not even a connection";
}

TEST_F(Transport, strangerWhoTakesThePortBetweenTwoRequests_getsNothing)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    PortOwner owner = PortOwner::OurUser;
    NetworkTransport transport(m_clock, [&owner](quint16) { return Result<PortOwner>(owner); });
    const auto ask = [&] {
        return *runTask<Answer>([&](auto stop) {
            return transport.send({.method = "GET", .url = server.url(), .headers = {}, .body = {}}, stop);
        });
    };
    EXPECT_TRUE(ask().has_value());
    owner = PortOwner::AnotherUser;
    EXPECT_TRUE(isFault(ask().error(), Fault::PortTaken));
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_F(Transport, ownerThatCannotBeFoundOut_getsNothing)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    NetworkTransport transport(m_clock, [](quint16) {
        return Result<PortOwner>(std::unexpected(fileError(EACCES, QStringLiteral("/proc/net/tcp"))));
    });
    const auto answer = runTask<Answer>([&](auto stop) {
        return transport.send({.method = "GET", .url = server.url(), .headers = {}, .body = {}}, stop);
    });
    EXPECT_TRUE(isFault(answer->error(), Fault::NetworkFailed));
    EXPECT_EQ(server.connectionCount(), 0);
}

TEST_F(Transport, addressesBesidesTheLoopbackOne_areBadUrls)
{
    for (const char *url : {"http://localhost:1/", "http://192.0.2.1:1/", "https://127.0.0.1:1/", "file:///etc/passwd",
                            "", "http://127.0.0.1:70000/", "/api/status"}) {
        const Answer answer = get(QUrl(QString::fromLatin1(url)));
        ASSERT_FALSE(answer.has_value());
        EXPECT_TRUE(isFault(answer.error(), Fault::BadUrl)) << url;
    }
}

} // namespace
