#include "platform/devtools/HttpExchange.h"

#include <QList>

namespace ostrel {

namespace {

constexpr qsizetype longestHead = 16384;

/// The status of "HTTP/1.1 200 OK".
std::optional<int> statusOf(const QByteArray &line)
{
    const QList<QByteArray> words = line.split(' ');
    bool isNumber = false;
    const int status = words.value(1).toInt(&isNumber);
    if (!words[0].startsWith("HTTP/1.") || words.value(1).size() != 3 || !isNumber)
        return std::nullopt;
    return status;
}

/// The length of the body, where the head tells exactly one.
std::optional<qsizetype> bodyLength(const HttpHead &head)
{
    bool isNumber = false;
    const qsizetype length = head.headers.value("content-length").toLongLong(&isNumber);
    if (!isNumber || length < 0 || length > longestAnswer || head.headers.contains("transfer-encoding"))
        return std::nullopt;
    return length;
}

} // namespace

std::optional<HttpHead> parseHttpHead(const QByteArray &head)
{
    QList<QByteArray> lines = head.split('\n');
    const auto status = statusOf(lines.takeFirst().trimmed());
    if (!status)
        return std::nullopt;
    HttpHead parsed{.status = *status, .headers = {}};
    for (const QByteArray &line : lines) {
        const qsizetype colon = line.indexOf(':');
        const QByteArray name = line.first(std::max<qsizetype>(colon, 0)).toLower();
        if (name.isEmpty() || parsed.headers.contains(name))
            return std::nullopt;
        parsed.headers.insert(name, line.sliced(colon + 1).trimmed());
    }
    return parsed;
}

bool sendGet(LoopbackSocket &socket, quint16 port, const QByteArray &path, const QByteArray &furtherHeaders)
{
    return socket.send("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(port) + "\r\n" +
                       furtherHeaders + "\r\n");
}

std::optional<HttpHead> receiveHead(LoopbackSocket &socket)
{
    const auto head = socket.takeUntil("\r\n\r\n", longestHead);
    return head ? parseHttpHead(*head) : std::nullopt;
}

std::optional<QByteArray> httpGet(LoopbackSocket &socket, quint16 port, const QByteArray &path)
{
    if (!sendGet(socket, port, path, "Connection: close\r\n"))
        return std::nullopt;
    const auto head = receiveHead(socket);
    if (!head || head->status != 200)
        return std::nullopt;
    const auto length = bodyLength(*head);
    return length ? socket.take(*length) : std::nullopt;
}

} // namespace ostrel
