#include "TransportRig.h"

#include "base/Fault.h"
#include "base/TaskSlot.h"

#include <optional>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

using TransportSlow = TransportRig;

TEST_F(TransportSlow, serverThatDrips_hasSixtySecondsForAllOfIt)
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

TEST_F(TransportSlow, serverThatNeverAnswers_hasSixtySeconds)
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

TEST_F(TransportSlow, answeredRequest_leavesNoTimerBehind)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    ASSERT_TRUE(get(server.url()).has_value());
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

TEST_F(TransportSlow, cancelledRequest_hasEndedWhenCancelReturnsAndItsConnectionCloses)
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

TEST_F(TransportSlow, stoppedBeforeItBegins_sendsNothing)
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

} // namespace
