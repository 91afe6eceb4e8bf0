#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

#include <functional>

#include <gtest/gtest.h>

namespace ostrel {

/// A real HTTP server on a free port of 127.0.0.1 that does whatever a test tells it to, rude things included. It runs
/// in the main thread's event loop. Targets that use it link Qt6::Network.
class HttpTestServer
{
public:
    struct Request {
        QByteArray line;                                  ///< "GET /api/status HTTP/1.1"
        QList<std::pair<QByteArray, QByteArray>> headers; ///< names in lower case
        QByteArray body;

        /// The values of a header; a name that stands twice gives two.
        QList<QByteArray> header(const QByteArray &name) const
        {
            QList<QByteArray> values;
            for (const auto &[key, value] : headers) {
                if (key == name)
                    values.append(value);
            }
            return values;
        }
    };
    /// Gets a complete request and writes to, or closes, its socket.
    using Handler = std::function<void(const Request &request, QTcpSocket &socket)>;

    explicit HttpTestServer(Handler handler) : m_handler(std::move(handler))
    {
        EXPECT_TRUE(m_server.listen(QHostAddress::LocalHost));
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection())
                serve(socket);
        });
    }

    /// A whole answer.
    static QByteArray response(int status, const QByteArray &body, const QByteArray &furtherHeaders = {})
    {
        return "HTTP/1.1 " + QByteArray::number(status) +
               " Reason\r\nContent-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size()) +
               "\r\n" + furtherHeaders + "\r\n" + body;
    }
    /// Answers everything alike.
    static Handler always(QByteArray response)
    {
        return [response = std::move(response)](const Request &, QTcpSocket &socket) { socket.write(response); };
    }

    quint16 port() const { return m_server.serverPort(); }
    QUrl url(const QString &path = {}) const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(port()).arg(path));
    }
    const QList<Request> &requests() const { return m_requests; }
    int connectionCount() const { return m_connectionCount; }
    int closedCount() const { return m_closedCount; }

private:
    void serve(QTcpSocket *socket)
    {
        ++m_connectionCount;
        auto received = std::make_shared<QByteArray>();
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, received] {
            *received += socket->readAll();
            takeRequest(*received, *socket);
        });
        QObject::connect(socket, &QTcpSocket::disconnected, socket, [this, socket] {
            ++m_closedCount;
            socket->deleteLater();
        });
    }

    void takeRequest(QByteArray &received, QTcpSocket &socket)
    {
        const qsizetype headEnd = received.indexOf("\r\n\r\n");
        if (headEnd < 0)
            return;
        const Request request = parsed(received.first(headEnd));
        const qsizetype bodySize = request.header("content-length").value(0).toLongLong();
        const qsizetype end = headEnd + 4 + bodySize;
        if (received.size() < end)
            return;
        m_requests.append(request);
        m_requests.last().body = received.sliced(headEnd + 4, bodySize);
        received.remove(0, end);
        const Request complete = m_requests.last();
        m_handler(complete, socket);
    }

    static Request parsed(const QByteArray &head)
    {
        Request request;
        for (const QByteArray &line : head.split('\n')) {
            const qsizetype colon = line.indexOf(':');
            if (request.line.isEmpty())
                request.line = line.trimmed();
            else if (colon > 0)
                request.headers.emplaceBack(line.first(colon).toLower(), line.sliced(colon + 1).trimmed());
        }
        return request;
    }

    Handler m_handler;
    QTcpServer m_server;
    QList<Request> m_requests;
    int m_connectionCount = 0;
    int m_closedCount = 0;
};

} // namespace ostrel
