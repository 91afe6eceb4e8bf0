#pragma once

#include "support/HttpTestServer.h"

#include <QPointer>

#include <map>
#include <optional>

namespace ostrel {

/// Serves files as web servers do, ranges included, and breaks connections where a test wants it.
class FileServer
{
public:
    struct File {
        QByteArray content;
        QByteArray entityTag = "\"1\"";
        bool takesRanges = true;
        /// The head doesn't say how long it is, as of a file that is made as it is sent.
        bool tellsLength = true;
        /// The connection is closed after so many bytes of each answer's body; how many of them arrive is luck.
        std::optional<qsizetype> cutAfter = std::nullopt;
        /// Nothing follows after so many bytes of each answer's body, until `cut`.
        std::optional<qsizetype> stallAfter = std::nullopt;
    };

    FileServer() : m_server([this](const auto &request, auto &socket) { answer(request, socket); }) {}

    std::map<QString, File> files; ///< by path, as in "/feed"

    /// Closes the connection of the last answer.
    void cut() { m_last->disconnectFromHost(); }

    QUrl url(const QString &path = {}) const { return m_server.url(path); }
    const QList<HttpTestServer::Request> &requests() const { return m_server.requests(); }
    /// How often a path was asked for.
    int count(const QByteArray &path) const
    {
        return int(std::ranges::count_if(requests(), [&](const HttpTestServer::Request &request) {
            return request.line == "GET " + path + " HTTP/1.1";
        }));
    }

private:
    void answer(const HttpTestServer::Request &request, QTcpSocket &socket)
    {
        const auto found = files.find(QString::fromUtf8(request.line.split(' ').value(1)));
        if (found == files.end()) {
            socket.write(HttpTestServer::response(404, "not here"));
            return;
        }
        const File &file = found->second;
        const qsizetype first = firstByte(request, file);
        if (first > file.content.size()) {
            socket.write(HttpTestServer::response(416, {}));
            return;
        }
        socket.write(head(file, first));
        const QByteArray body = file.content.sliced(first);
        m_last = &socket;
        const auto end = file.cutAfter ? file.cutAfter : file.stallAfter;
        socket.write(end ? body.first(std::min(*end, body.size())) : body);
        if (file.cutAfter || !file.tellsLength)
            socket.disconnectFromHost();
    }

    static QByteArray head(const File &file, qsizetype first)
    {
        const QByteArray total = QByteArray::number(file.content.size());
        QByteArray head = first > 0
                              ? "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + QByteArray::number(first) +
                                    '-' + QByteArray::number(file.content.size() - 1) + '/' + total + "\r\n"
                              : QByteArray("HTTP/1.1 200 OK\r\n");
        if (file.tellsLength)
            head += "Content-Length: " + QByteArray::number(file.content.size() - first) + "\r\n";
        else
            head += "Connection: close\r\n";
        return head + "ETag: " + file.entityTag + "\r\n\r\n";
    }

    static qsizetype firstByte(const HttpTestServer::Request &request, const File &file)
    {
        const QByteArray range = request.header("range").value(0);
        const QByteArray condition = request.header("if-range").value(0, file.entityTag);
        if (!file.takesRanges || range.isEmpty() || condition != file.entityTag)
            return 0;
        return range.sliced(6).chopped(1).toLongLong(); // bytes=N-
    }

    QPointer<QTcpSocket> m_last;
    HttpTestServer m_server;
};

} // namespace ostrel
