#include "platform/devtools/WebSocket.h"

#include "platform/devtools/HttpExchange.h"

#include <QCryptographicHash>
#include <QRandomGenerator>
#include <QtEndian>

#include <array>

namespace ostrel {

namespace {

// RFC 6455, section 5.2.
constexpr char wholeTextMessage = char(0x81);
constexpr char maskedBit = char(0x80);
constexpr quint8 lengthIn16Bits = 126;
constexpr quint8 lengthIn64Bits = 127;

QByteArray randomBytes(qsizetype count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    for (char &byte : bytes)
        byte = char(QRandomGenerator::system()->bounded(256));
    return bytes;
}

/// What a server that has understood the request answers to a key: section 4.2.2.
QByteArray acceptanceOf(const QByteArray &key)
{
    return QCryptographicHash::hash(key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11", QCryptographicHash::Sha1).toBase64();
}

} // namespace

std::optional<WebSocket> WebSocket::open(LoopbackSocket socket, quint16 port, const QByteArray &path)
{
    const QByteArray key = randomBytes(16).toBase64();
    if (!sendGet(socket, port, path,
                 "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: " + key +
                     "\r\n"))
        return std::nullopt;
    const auto head = receiveHead(socket);
    if (!head || head->status != 101 || head->headers.value("sec-websocket-accept") != acceptanceOf(key))
        return std::nullopt;
    return WebSocket(std::move(socket));
}

bool WebSocket::send(const QByteArray &text)
{
    Q_ASSERT(text.size() <= 0xffff);
    QByteArray frame(1, wholeTextMessage);
    if (text.size() < lengthIn16Bits) {
        frame += char(maskedBit | char(text.size()));
    } else {
        frame += char(maskedBit | char(lengthIn16Bits));
        frame += char(text.size() >> 8);
        frame += char(text.size() & 0xff);
    }
    const QByteArray mask = randomBytes(4);
    frame += mask;
    for (qsizetype i = 0; i < text.size(); ++i)
        frame += char(text[i] ^ mask[i % 4]);
    return m_socket.send(frame);
}

std::optional<QByteArray> WebSocket::receive()
{
    const auto head = m_socket.take(2);
    // A server never masks, so that the second byte is the length alone.
    if (!head || head->at(0) != wholeTextMessage || (head->at(1) & maskedBit) != 0)
        return std::nullopt;
    quint64 length = quint8(head->at(1));
    if (length == lengthIn16Bits || length == lengthIn64Bits) {
        const auto extended = m_socket.take(length == lengthIn16Bits ? 2 : 8);
        if (!extended)
            return std::nullopt;
        length = extended->size() == 2 ? qFromBigEndian<quint16>(extended->constData())
                                       : qFromBigEndian<quint64>(extended->constData());
    }
    if (length > quint64(longestAnswer))
        return std::nullopt;
    return m_socket.take(qsizetype(length));
}

} // namespace ostrel
