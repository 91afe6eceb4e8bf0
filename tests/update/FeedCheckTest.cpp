#include "update/FeedCheck.h"
#include "base/Fault.h"
#include "base/TaskSlot.h"
#include "support/FakeUserDefaults.h"
#include "support/HttpTestServer.h"
#include "support/ManualClock.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "support/UpdateFeed.h"
#include "update/UpdateMemory.h"

#include <gmock/gmock.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// A clock that the test moves, and that tells how often somebody has begun to wait.
class WatchedClock final : public Clock
{
public:
    int waits = 0;

    qint64 nowMs() const override { return m_clock.nowMs(); }
    std::function<void()> schedule(std::chrono::milliseconds delay, std::function<void()> callback) override
    {
        ++waits;
        return m_clock.schedule(delay, std::move(callback));
    }
    void advance(std::chrono::milliseconds duration) { m_clock.advance(duration); }

private:
    ManualClock m_clock{[] { settleEvents(); }};
};

/// Asks a server whose answers the test sends piece by piece, on a clock that the test moves.
class FeedCheckTest : public testing::Test
{
protected:
    void ask()
    {
        m_slot.start([this](std::stop_token stop) -> Task<> {
            m_answer = co_await m_check.ask({.bundle = {.prefix = {},
                                                        .feedUrl = m_server.url().toString(),
                                                        .publicKey = m_key.publicText(),
                                                        .shortVersion = QStringLiteral("0.1.0")},
                                             .installation = std::nullopt},
                                            stop);
        });
        ASSERT_TRUE(pumpUntil([this] { return m_client != nullptr; }));
    }
    /// Sends something, and returns when it has arrived: whoever waits has begun to wait anew.
    void send(const QByteArray &bytes)
    {
        const int before = m_clock.waits;
        m_client->write(bytes);
        ASSERT_TRUE(pumpUntil([&] { return m_answer || m_clock.waits > before; }));
    }

    SigningKey m_key;
    WatchedClock m_clock;
    HttpClient m_http{m_clock};
    FakeUserDefaults m_defaults;
    UpdateMemory m_memory{m_defaults};
    FeedCheck m_check{m_http, m_memory, m_clock};
    QTcpSocket *m_client = nullptr;
    HttpTestServer m_server{[this](const auto &, QTcpSocket &socket) { m_client = &socket; }};
    std::optional<Result<FeedAnswer>> m_answer;
    TaskSlot m_slot;
};

TEST_F(FeedCheckTest, feedThatComesInPieces_isRead)
{
    const QByteArray feed = signedFeed(m_key, feedDocument({}));
    ask();
    send("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(feed.size()) + "\r\n\r\n" + feed.first(20));
    m_clock.advance(29s);
    send(feed.sliced(20, 20));
    m_clock.advance(29s);
    EXPECT_FALSE(m_answer.has_value());
    send(feed.sliced(40));
    ASSERT_TRUE(pumpUntil([this] { return m_answer.has_value(); }));
    ASSERT_TRUE(m_answer->has_value()) << m_answer->error().localizedDescription.toStdString();
    EXPECT_FALSE((*m_answer)->newer.has_value());
}

TEST_F(FeedCheckTest, feedThatDrips_isGivenUpAfterAMinute)
{
    ask();
    send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\no");
    for (const char *drop : {"s", "t"}) {
        m_clock.advance(29s);
        EXPECT_FALSE(m_answer.has_value());
        send(drop);
    }
    m_clock.advance(29s);
    send("r");
    ASSERT_TRUE(pumpUntil([this] { return m_answer.has_value(); }));
    ASSERT_FALSE(m_answer->has_value());
    EXPECT_TRUE(isFault(m_answer->error(), Fault::TimedOut)) << m_answer->error().localizedDescription.toStdString();
}

} // namespace
