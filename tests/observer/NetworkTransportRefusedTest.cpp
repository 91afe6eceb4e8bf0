#include "TransportRig.h"

#include "base/Fault.h"
#include "base/SerialQueue.h"
#include "observer/LocalObserverAPI.h"
#include "support/StrangersListener.h"

using namespace ostrel;

namespace {

using TransportRefused = TransportRig;

TEST_F(TransportRefused, nobodyListens_isConnectionRefused)
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

TEST_F(TransportRefused, strangerOnThePort_getsNoConnectionAndTheErrorNamesThePort)
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
    frame.videoBase64 = Base64Text::ofText("AAAA");
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

TEST_F(TransportRefused, strangerWhoTakesThePortBetweenTwoRequests_getsNothing)
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

TEST_F(TransportRefused, strangerWhoBeginsToListenAfterNobodyDid_getsNoConnection)
{
    HttpTestServer comesTooLate(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    NetworkTransport transport(m_clock, [](quint16) { return Result<PortOwner>(PortOwner::Nobody); });
    for (const QByteArray &method : {QByteArray("GET"), QByteArray("POST")}) {
        const auto answer = runTask<Answer>([&](auto stop) {
            return transport.send({.method = method, .url = comesTooLate.url(), .headers = {}, .body = {}}, stop);
        });
        ASSERT_TRUE(answer.has_value());
        EXPECT_EQ(answer->error(), faultError(Fault::ConnectionRefused)) << method.toStdString();
    }
    EXPECT_EQ(comesTooLate.connectionCount(), 0);
}

TEST_F(TransportRefused, ownerThatCannotBeFoundOut_getsNothing)
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

TEST_F(TransportRefused, addressesBesidesTheLoopbackOne_areBadUrls)
{
    for (const char *url : {"http://localhost:1/", "http://192.0.2.1:1/", "https://127.0.0.1:1/", "file:///etc/passwd",
                            "", "http://127.0.0.1:70000/", "/api/status"}) {
        const Answer answer = get(QUrl(QString::fromLatin1(url)));
        ASSERT_FALSE(answer.has_value());
        EXPECT_TRUE(isFault(answer.error(), Fault::BadUrl)) << url;
    }
}

} // namespace
