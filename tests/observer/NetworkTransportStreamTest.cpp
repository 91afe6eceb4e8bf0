#include "TransportRig.h"

#include "base/Fault.h"
#include "base/SerialQueue.h"
#include "base/TaskSlot.h"

#include <algorithm>
#include <atomic>
#include <latch>
#include <optional>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// Pieces of one size, each filled with its number.
class NumberedPieces final : public BodySource
{
public:
    static constexpr qsizetype pieceBytes = 100'000;

    explicit NumberedPieces(int count) : m_count(count) {}

    qint64 size() const override { return m_count * pieceBytes; }
    QByteArray nextPiece() override
    {
        if (onPiece)
            onPiece(made);
        return made == endsAfter.value_or(m_count) ? QByteArray() : QByteArray(pieceBytes, char(made++));
    }
    QByteArray whole() const
    {
        QByteArray bytes;
        for (int piece = 0; piece < m_count; ++piece)
            bytes += QByteArray(pieceBytes, char(piece));
        return bytes;
    }

    std::atomic<int> made = 0;
    std::function<void(int)> onPiece; ///< on the worker, with the number of the piece
    std::optional<int> endsAfter;     ///< fewer pieces than were announced

private:
    const int m_count;
};

class TransportStream : public TransportRig
{
protected:
    HttpRequest post(const QUrl &url, std::shared_ptr<BodySource> source)
    {
        return {.method = "POST", .url = url, .headers = {}, .body = StreamedBody{std::move(source), &m_worker}};
    }
    /// Begins a request, whose outcome will stand in `m_answer`.
    void begin(const QUrl &url, std::shared_ptr<BodySource> source)
    {
        m_slot.start([this, request = post(url, std::move(source))](std::stop_token stop) -> Task<> {
            m_answer = co_await m_transport.send(request, stop);
        });
    }
    bool pumpUntilAnswered()
    {
        return pumpUntil([this] { return m_answer.has_value(); });
    }

    SerialQueue m_worker{QStringLiteral("bodies")};
    std::optional<Answer> m_answer;
    TaskSlot m_slot;
};

/// A server whose backlog takes the connection, and which never reads a byte of it.
class DeafServer
{
public:
    DeafServer()
    {
        EXPECT_TRUE(m_server.listen(QHostAddress::LocalHost));
        m_server.pauseAccepting();
    }
    QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(m_server.serverPort())); }

private:
    QTcpServer m_server;
};

TEST_F(TransportStream, bodyOfManyPieces_arrivesWholeWithItsLengthAnnounced)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    for (const int pieces : {0, 1, 2, 150}) {
        const auto source = std::make_shared<NumberedPieces>(pieces);
        ASSERT_TRUE(send(post(server.url(), source)).has_value()) << pieces;
        const Request &request = server.requests().last();
        EXPECT_EQ(request.header("content-length"), QList<QByteArray>{QByteArray::number(source->size())});
        EXPECT_TRUE(request.header("transfer-encoding").isEmpty());
        EXPECT_TRUE(request.body == source->whole()) << pieces;
    }
}

TEST_F(TransportStream, pieceThatTakesLong_holdsUpTheBodyAndNotTheMainThread)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    std::latch mayGoOn(1);
    std::atomic<bool> waits = false;
    const auto source = std::make_shared<NumberedPieces>(20);
    source->onPiece = [&](int piece) {
        EXPECT_TRUE(m_worker.isCurrent());
        if (piece == 10) {
            waits = true;
            mayGoOn.wait();
        }
    };
    begin(server.url(), source);
    ASSERT_TRUE(pumpUntil([&] { return waits.load(); }));
    settleEvents(); // the events of this thread go on meanwhile
    EXPECT_FALSE(m_answer.has_value());
    EXPECT_EQ(source->made, 10);
    mayGoOn.count_down();
    ASSERT_TRUE(pumpUntilAnswered());
    EXPECT_TRUE(m_answer->has_value());
    EXPECT_TRUE(server.requests().first().body == source->whole());
}

TEST_F(TransportStream, serverThatReadsSlowly_leavesTheRestUnmade)
{
    // What the kernel takes on both sides is some megabytes at most.
    constexpr qint64 mostOnTheWay = 16'000'000;
    const auto source = std::make_shared<NumberedPieces>(600);
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    qint64 received = 0, greatestLead = 0;
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&] {
        QTcpSocket *socket = server.nextPendingConnection();
        socket->setReadBufferSize(20'000);
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [&, socket] {
            received += socket->readAll().size();
            greatestLead = std::max(greatestLead, source->made * NumberedPieces::pieceBytes - received);
            if (received > source->size())
                socket->write(HttpTestServer::response(200, "{}"));
        });
    });
    const Answer answer = send(post(QUrl(QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort())), source));
    EXPECT_TRUE(answer.has_value());
    EXPECT_LT(greatestLead, mostOnTheWay);
}

TEST_F(TransportStream, serverThatReadsNothing_hasSixtySeconds)
{
    const DeafServer server;
    const auto source = std::make_shared<NumberedPieces>(1000);
    begin(server.url(), source);
    ASSERT_TRUE(pumpUntil([&] { return source->made > 2; }));
    m_clock.advance(59'999ms);
    EXPECT_FALSE(m_answer.has_value());
    m_clock.advance(1ms);
    ASSERT_TRUE(m_answer.has_value());
    EXPECT_EQ(m_answer->error(), faultError(Fault::TimedOut));
    EXPECT_TRUE(pumpUntil([&] { return source.use_count() == 1; })) << "the source is let go";
}

TEST_F(TransportStream, cancelledInTheMiddle_hasEndedAtOnceAndLetsGoOfTheSource)
{
    const DeafServer server;
    const auto source = std::make_shared<NumberedPieces>(1000);
    begin(server.url(), source);
    ASSERT_TRUE(pumpUntil([&] { return source->made > 2; }));
    m_slot.cancel();
    ASSERT_TRUE(m_answer.has_value());
    EXPECT_TRUE(isFault(m_answer->error(), Fault::Cancelled));
    EXPECT_TRUE(pumpUntil([&] { return source.use_count() == 1; }));
    const int made = source->made;
    settleEvents();
    EXPECT_EQ(source->made, made);
    EXPECT_EQ(m_clock.pendingTimerCount(), 0);
}

TEST_F(TransportStream, cancelledWhileAPieceIsBeingMade_doesNotWaitForIt)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    std::latch mayGoOn(1);
    std::atomic<bool> waits = false;
    const auto source = std::make_shared<NumberedPieces>(20);
    source->onPiece = [&](int piece) {
        if (piece == 3) {
            waits = true;
            mayGoOn.wait();
        }
    };
    begin(server.url(), source);
    ASSERT_TRUE(pumpUntil([&] { return waits.load(); }));
    m_slot.cancel();
    EXPECT_TRUE(m_answer.has_value());
    mayGoOn.count_down();
    EXPECT_TRUE(pumpUntil([&] { return source.use_count() == 1; }));
    EXPECT_EQ(server.requests().size(), 0);
}

TEST_F(TransportStream, queueThatEndsAfterACancel_isNotAskedAgain)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    const auto source = std::make_shared<NumberedPieces>(1000);
    {
        SerialQueue shortLived(QStringLiteral("short-lived"));
        HttpRequest request = post(server.url(), source);
        std::get<StreamedBody>(request.body).worker = &shortLived;
        m_slot.start(
            [this, request](std::stop_token stop) -> Task<> { m_answer = co_await m_transport.send(request, stop); });
        ASSERT_TRUE(pumpUntil([&] { return source->made > 2; }));
        m_slot.cancel();
    }
    settleEvents();
    EXPECT_TRUE(m_answer.has_value());
}

TEST_F(TransportStream, answerBeforeTheBodyIsRead_isThatAnswerOrAClosedConnection)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&server] {
        QTcpSocket *socket = server.nextPendingConnection();
        socket->write(HttpTestServer::response(413, "{}"));
        socket->disconnectFromHost();
    });
    const QUrl url(QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort()));
    for (const int pieces : {1, 3, 30, 300}) {
        const auto source = std::make_shared<NumberedPieces>(pieces);
        const Answer answer = send(post(url, source));
        if (answer)
            EXPECT_EQ(answer->statusCode, 413);
        else
            EXPECT_EQ(answer.error(), faultError(Fault::ConnectionClosed)) << pieces;
        EXPECT_TRUE(pumpUntil([&] { return source.use_count() == 1; }));
    }
}

TEST_F(TransportStream, earlyAnswerOfAServerThatReadsOn_isThatAnswer)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&server] {
        QTcpSocket *socket = server.nextPendingConnection();
        socket->write(HttpTestServer::response(413, "{}"));
        QObject::connect(socket, &QTcpSocket::readyRead, socket, &QTcpSocket::readAll);
    });
    const auto source = std::make_shared<NumberedPieces>(300);
    const Answer answer = send(post(QUrl(QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort())), source));
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->statusCode, 413);
}

TEST_F(TransportStream, earlyAnswerOfAServerThatReadsNoMore_endsWithTheDeadline)
{
    // The network stack looks for an answer only once it has sent everything, or when the connection closes.
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QTcpSocket *connection = nullptr;
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&] {
        connection = server.nextPendingConnection();
        connection->setReadBufferSize(1); // and nobody reads even that
        connection->write(HttpTestServer::response(413, "{}"));
    });
    const auto source = std::make_shared<NumberedPieces>(1000);
    begin(QUrl(QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort())), source);
    ASSERT_TRUE(pumpUntil([&] { return connection && source->made > 2; }));
    m_clock.advance(60s);
    ASSERT_TRUE(m_answer.has_value());
    EXPECT_LT(source->made, 1000);
    EXPECT_TRUE(pumpUntil([&] { return source.use_count() == 1; }));
}

TEST_F(TransportStream, connectionClosedInTheMiddleOfTheBody_failsAndNothingIsSentTwice)
{
    QList<QTcpSocket *> open;
    int connections = 0;
    QByteArray sentAgain;
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&] {
        QTcpSocket *socket = server.nextPendingConnection();
        open.append(socket);
        QObject::connect(socket, &QTcpSocket::disconnected, socket, [&, socket] { open.removeAll(socket); });
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [&, socket, isFirst = connections++ == 0] {
            if (!isFirst)
                sentAgain += socket->readAll();
            else if (socket->bytesAvailable() > 500'000)
                socket->abort();
        });
    });
    const auto source = std::make_shared<NumberedPieces>(300);
    const Answer answer = send(post(QUrl(QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort())), source));
    ASSERT_FALSE(answer.has_value());
    EXPECT_EQ(answer.error(), faultError(Fault::ConnectionClosed));
    // The network stack may connect once more before it finds that the body can't be had again.
    EXPECT_TRUE(pumpUntil([&] { return source.use_count() == 1 && open.isEmpty(); }));
    EXPECT_EQ(sentAgain, QByteArray());
}

TEST_F(TransportStream, sourceThatEndsBeforeItsLength_failsTheRequest)
{
    HttpTestServer server(HttpTestServer::always(HttpTestServer::response(200, "{}")));
    for (const int pieces : {0, 1, 7}) {
        const auto source = std::make_shared<NumberedPieces>(20);
        source->endsAfter = pieces;
        EXPECT_FALSE(send(post(server.url(), source)).has_value()) << pieces;
    }
    EXPECT_TRUE(server.requests().isEmpty());
}

TEST_F(TransportStream, transportThatEndsInTheMiddle_letsGoOfTheSource)
{
    const DeafServer server;
    const auto source = std::make_shared<NumberedPieces>(1000);
    auto transport = std::make_unique<NetworkTransport>(m_clock);
    m_slot.start([&transport, request = post(server.url(), source)](std::stop_token stop) -> Task<> {
        static_cast<void>(co_await transport->send(request, stop));
    });
    ASSERT_TRUE(pumpUntil([&] { return source->made > 2; }));
    m_slot.cancel(); // whoever sends goes first
    transport.reset();
    EXPECT_TRUE(pumpUntil([&] { return source.use_count() == 1; }));
}

} // namespace
