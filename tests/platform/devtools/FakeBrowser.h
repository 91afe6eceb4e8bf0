#pragma once

#include "support/HttpTestServer.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>

namespace ostrel {

/// The far side of the debugging protocol over real sockets, in the main thread's event loop. It is as rude as a test
/// asks for, and fails on a question that it was not told to expect.
class FakeBrowser
{
public:
    struct Page {
        QString id;
        QString title;
        QString state = QStringLiteral("visible false"); ///< what the page says of itself; empty: it hangs
        QString profile = QStringLiteral("own");
    };

    QList<Page> pages;
    QJsonValue ownProfile = QStringLiteral("own");
    /// Takes the place of the answers to "GET /json/version", to the upgrade, and to a question of that method.
    std::optional<HttpTestServer::Handler> version, upgrade;
    QHash<QString, std::function<void(QTcpSocket &socket, int id)>> answers;

    quint16 port() const { return m_server.port(); }
    int connectionCount() const { return m_server.connectionCount(); }
    const QList<HttpTestServer::Request> &requests() const { return m_server.requests(); }
    const QStringList &questions() const { return m_questions; } ///< the methods, in order
    /// How many pages were asked about themselves.
    qsizetype pagesAsked() const { return m_questions.count(QStringLiteral("Runtime.evaluate")); }

    /// The frame of a message, as a server sends it.
    static QByteArray frame(const QByteArray &payload, char head = char(0x81))
    {
        QByteArray frame(1, head);
        if (payload.size() < 126) {
            frame += char(payload.size());
        } else if (payload.size() <= 0xffff) {
            frame += char(126);
            frame.resize(4);
            qToBigEndian(quint16(payload.size()), frame.data() + 2);
        } else {
            frame += char(127);
            frame.resize(10);
            qToBigEndian(quint64(payload.size()), frame.data() + 2);
        }
        return frame + payload;
    }
    static QByteArray answer(int id, const QJsonObject &result)
    {
        return frame(QJsonDocument(QJsonObject{{QStringLiteral("id"), id}, {QStringLiteral("result"), result}})
                         .toJson(QJsonDocument::Compact));
    }
    static QByteArray versionBody(const QByteArray &url)
    {
        return HttpTestServer::response(200, R"({"Browser": "Chrome/1", "webSocketDebuggerUrl": ")" + url + "\"}");
    }
    static QString address(const Page &page) { return QStringLiteral("https://example.org/") + page.id; }

private:
    void handle(const HttpTestServer::Request &request, QTcpSocket &socket)
    {
        EXPECT_EQ(request.header("host"), QList<QByteArray>{"127.0.0.1:" + QByteArray::number(port())});
        EXPECT_TRUE(request.header("origin").isEmpty()) << "a browser would take it for a web page";
        if (request.line == "GET /json/version HTTP/1.1")
            version ? (*version)(request, socket) : void(socket.write(versionBody("ws://127.0.0.1:1" + path)));
        else if (request.line == "GET " + path + " HTTP/1.1")
            upgrade ? (*upgrade)(request, socket) : beginSession(request, socket);
        else
            ADD_FAILURE() << "unexpected request: " << request.line.constData();
    }

    void beginSession(const HttpTestServer::Request &request, QTcpSocket &socket)
    {
        const QByteArray key = request.header("sec-websocket-key").value(0);
        EXPECT_EQ(QByteArray::fromBase64(key).size(), 16);
        EXPECT_EQ(request.header("sec-websocket-version"), QList<QByteArray>{"13"});
        const QByteArray acceptance =
            QCryptographicHash::hash(key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11", QCryptographicHash::Sha1).toBase64();
        QObject::disconnect(&socket, &QTcpSocket::readyRead, nullptr, nullptr);
        auto received = std::make_shared<QByteArray>();
        QObject::connect(&socket, &QTcpSocket::readyRead, &socket, [this, &socket, received] {
            *received += socket.readAll();
            while (takeQuestion(*received, socket)) {
            }
        });
        socket.write("HTTP/1.1 101 Switching\r\nUpgrade: WebSocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
                     acceptance + "\r\n\r\n");
    }

    bool takeQuestion(QByteArray &received, QTcpSocket &socket)
    {
        if (received.size() < 8)
            return false;
        EXPECT_EQ(received[0], char(0x81));
        EXPECT_TRUE((received[1] & char(0x80)) != 0) << "clients mask";
        qsizetype size = received[1] & 0x7f, at = 2;
        if (size == 126) {
            size = qFromBigEndian<quint16>(received.constData() + 2);
            at = 4;
        }
        if (received.size() < at + 4 + size)
            return false;
        QByteArray text = received.sliced(at + 4, size);
        for (qsizetype i = 0; i < size; ++i)
            text[i] = char(text[i] ^ received[at + i % 4]);
        received.remove(0, at + 4 + size);
        reply(QJsonDocument::fromJson(text).object(), socket);
        return true;
    }

    void reply(const QJsonObject &question, QTcpSocket &socket)
    {
        const QString method = question.value(QStringLiteral("method")).toString();
        const int id = question.value(QStringLiteral("id")).toInt();
        const QJsonObject parameters = question.value(QStringLiteral("params")).toObject();
        m_questions.append(method);
        if (const auto rude = answers.constFind(method); rude != answers.cend()) {
            (*rude)(socket, id);
        } else if (method == QLatin1String("Target.getBrowserContexts")) {
            socket.write(answer(id, {{QStringLiteral("defaultBrowserContextId"), ownProfile}}));
        } else if (method == QLatin1String("Target.getTargets")) {
            socket.write(answer(id, {{QStringLiteral("targetInfos"), targets()}}));
        } else if (method == QLatin1String("Target.attachToTarget")) {
            // As browsers do, with an event before the answer.
            socket.write(frame(R"({"method":"Target.attachedToTarget","params":{}})"));
            socket.write(answer(id, {{QStringLiteral("sessionId"), parameters.value(QStringLiteral("targetId"))}}));
        } else if (method == QLatin1String("Page.createIsolatedWorld")) {
            socket.write(answer(id, {{QStringLiteral("executionContextId"), 5}}));
        } else if (method == QLatin1String("Runtime.evaluate")) {
            EXPECT_EQ(parameters.value(QStringLiteral("contextId")).toInt(), 5) << "the page's own world can lie";
            tellState(question.value(QStringLiteral("sessionId")).toString(), id, socket);
        } else {
            ADD_FAILURE() << "unexpected question: " << method.toStdString();
        }
    }

    void tellState(const QString &pageId, int id, QTcpSocket &socket) const
    {
        for (const Page &page : pages) {
            if (page.id == pageId && !page.state.isEmpty())
                socket.write(
                    answer(id, {{QStringLiteral("result"), QJsonObject{{QStringLiteral("value"), page.state}}}}));
        }
    }

    QJsonArray targets() const
    {
        QJsonArray list;
        for (const Page &page : pages)
            list.append(QJsonObject{{QStringLiteral("targetId"), page.id},
                                    {QStringLiteral("type"), QStringLiteral("page")},
                                    {QStringLiteral("title"), page.title},
                                    {QStringLiteral("url"), address(page)},
                                    {QStringLiteral("browserContextId"), page.profile}});
        return list;
    }

    const QByteArray path = "/devtools/browser/0123-abc";
    QStringList m_questions;
    HttpTestServer m_server{
        [this](const HttpTestServer::Request &request, QTcpSocket &socket) { handle(request, socket); }};
};

} // namespace ostrel
