#include "platform/sessionbus/BusSocket.h"

#include "platform/sessionbus/BusNames.h"
#include "platform/sessionbus/UnixAddress.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ostrel {

namespace {

/// The smallest part of a message that tells how long it is.
constexpr qsizetype headLength = 16;
/// Where its number stands, in the byte order of whoever wrote it.
constexpr qsizetype serialOffset = 8;
/// The bus's answers to a program that introduces itself are short.
constexpr qsizetype longestLine = 4096;
/// A bus that has taken none of that many questions hangs, and is not to be asked all of them when it goes on.
constexpr qsizetype mostUnsent = 1 << 20;

int timeoutOf(const QDeadlineTimer &deadline)
{
    if (deadline.isForever())
        return -1;
    return int(std::min<qint64>(deadline.remainingTime(), std::numeric_limits<int>::max()));
}

} // namespace

std::unique_ptr<BusSocket> BusSocket::connect(const QByteArray &address, QDeadlineTimer deadline)
{
    for (const UnixAddress &place : unixAddressesIn(address)) {
        const int descriptor = connectTo(place);
        if (descriptor < 0)
            continue;
        std::unique_ptr<BusSocket> socket(new BusSocket(descriptor));
        if (socket->introduce(deadline) && socket->sayHello(deadline))
            return socket;
    }
    return nullptr;
}

BusSocket::~BusSocket()
{
    ::close(m_descriptor);
}

bool BusSocket::introduce(QDeadlineTimer deadline)
{
    const QByteArray user = QByteArray::number(::geteuid()).toHex();
    m_unsent = QByteArray(1, '\0') + "AUTH EXTERNAL " + user + "\r\n";
    const auto answer = readLine(deadline);
    if (!answer || !answer->startsWith("OK "))
        return false;
    m_unsent += "BEGIN\r\n";
    return true;
}

std::optional<QByteArray> BusSocket::readLine(QDeadlineTimer deadline)
{
    qsizetype end = -1;
    while ((end = m_received.indexOf("\r\n")) < 0) {
        if (m_received.size() > longestLine || !exchange(deadline))
            return std::nullopt;
    }
    QByteArray line = m_received.left(end);
    m_received.remove(0, end + 2);
    return line;
}

bool BusSocket::sayHello(QDeadlineTimer deadline)
{
    const GlibHandle<GDBusMessage> hello(
        g_dbus_message_new_method_call(BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "Hello"));
    const quint32 serial = post(encoded(hello.get()));
    while (const auto message = next(deadline)) {
        if (callAnsweredBy(message.get()) == serial)
            return g_dbus_message_get_message_type(message.get()) == G_DBUS_MESSAGE_TYPE_METHOD_RETURN;
    }
    return false;
}

QByteArray BusSocket::encoded(GDBusMessage *message)
{
    if (g_dbus_message_get_serial(message) == 0)
        g_dbus_message_set_serial(message, 1);
    gsize size = 0;
    guchar *const bytes = g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
    QByteArray encoded(reinterpret_cast<const char *>(bytes), qsizetype(size));
    g_free(bytes);
    return encoded;
}

quint32 BusSocket::post(const QByteArray &encodedMessage)
{
    ++m_lastSerial;
    if (encodedMessage.size() < headLength) // nobody will answer
        return m_lastSerial;
    const qsizetype start = m_unsent.size();
    m_unsent += encodedMessage;
    std::memcpy(m_unsent.data() + start + serialOffset, &m_lastSerial, sizeof(m_lastSerial));
    m_isLost = m_isLost || m_unsent.size() > mostUnsent;
    return m_lastSerial;
}

GlibHandle<GDBusMessage> BusSocket::next(QDeadlineTimer deadline)
{
    do {
        auto bytes = takeBytes();
        while (!bytes && exchange(deadline))
            bytes = takeBytes();
        if (!bytes)
            return nullptr;
        if (auto message = read(*std::move(bytes)))
            return message;
    } while (!m_isLost && !deadline.hasExpired());
    return nullptr;
}

std::optional<BusAnswerBytes> BusSocket::nextAnswer(QDeadlineTimer deadline)
{
    do {
        auto bytes = takeBytes();
        while (!bytes && exchange(deadline))
            bytes = takeBytes();
        if (!bytes)
            return std::nullopt;
        if (auto answer = BusAnswerBytes::in(*bytes))
            return answer;
        drop(*std::move(bytes));
    } while (!m_isLost && !deadline.hasExpired());
    return std::nullopt;
}

void BusSocket::drop(QDeadlineTimer deadline)
{
    while (!m_isLost && !deadline.hasExpired()) {
        if (auto bytes = takeBytes())
            drop(*std::move(bytes));
        else if (!exchange(QDeadlineTimer(0)))
            return;
    }
}

quint32 BusSocket::callAnsweredBy(GDBusMessage *message)
{
    // Whoever likes may put a number into a signal; of answers the bus sees to it.
    const GDBusMessageType type = g_dbus_message_get_message_type(message);
    const bool isAnswer = type == G_DBUS_MESSAGE_TYPE_METHOD_RETURN || type == G_DBUS_MESSAGE_TYPE_ERROR;
    return isAnswer ? g_dbus_message_get_reply_serial(message) : 0;
}

bool BusSocket::exchange(QDeadlineTimer deadline)
{
    while (!m_isLost) {
        send();
        if (receive())
            return true;
        pollfd waiting{
            .fd = m_descriptor, .events = short(m_unsent.isEmpty() ? POLLIN : POLLIN | POLLOUT), .revents = 0};
        if (!m_isLost && ::poll(&waiting, 1, timeoutOf(deadline)) == 0)
            return false;
    }
    return false;
}

void BusSocket::send()
{
    while (!m_unsent.isEmpty()) {
        const ssize_t sent = ::send(m_descriptor, m_unsent.constData(), std::size_t(m_unsent.size()), MSG_NOSIGNAL);
        if (sent < 0) {
            m_isLost = errno != EAGAIN && errno != EINTR;
            return;
        }
        m_unsent.remove(0, sent);
    }
}

bool BusSocket::receive()
{
    std::array<char, 16'384> bytes; // NOLINT(cppcoreguidelines-pro-type-member-init): written before it is read
    const ssize_t count = ::recv(m_descriptor, bytes.data(), bytes.size(), 0);
    if (count > 0) {
        m_received.append(bytes.data(), count);
        return true;
    }
    m_isLost = m_isLost || count == 0 || (errno != EAGAIN && errno != EINTR);
    return false;
}

/// @return how long the first message is that was received, 0 while nobody knows; negative for nonsense
qsizetype BusSocket::receivedLength() const
{
    if (m_received.size() < headLength)
        return 0;
    auto *const bytes = reinterpret_cast<guchar *>(const_cast<char *>(m_received.constData())); // it is only read
    return g_dbus_message_bytes_needed(bytes, gsize(m_received.size()), nullptr);
}

bool BusSocket::hasReceived() const
{
    const qsizetype length = receivedLength();
    return !m_isLost && length > 0 && length <= m_received.size();
}

std::optional<QByteArray> BusSocket::takeBytes()
{
    // After nonsense nobody knows where the next message begins.
    m_isLost = m_isLost || receivedLength() < 0;
    if (!hasReceived())
        return std::nullopt;
    const qsizetype length = receivedLength();
    QByteArray bytes = m_received.left(length);
    m_received.remove(0, length);
    return bytes;
}

/// @return null for a call, which is refused, and for nonsense
GlibHandle<GDBusMessage> BusSocket::read(QByteArray message)
{
    GlibHandle<GDBusMessage> read(g_dbus_message_new_from_blob(
        reinterpret_cast<guchar *>(message.data()), gsize(message.size()), G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    m_isLost = m_isLost || !read;
    if (!read)
        return read;
    const GDBusMessageType type = g_dbus_message_get_message_type(read.get());
    m_signalCount += type == G_DBUS_MESSAGE_TYPE_SIGNAL ? 1 : 0;
    if (type != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
        return read;
    refuse(read.get());
    return nullptr;
}

void BusSocket::drop(QByteArray message)
{
    constexpr qsizetype typeOffset = 1;
    switch (message[typeOffset]) {
    case G_DBUS_MESSAGE_TYPE_SIGNAL: // there may be many, if nobody has read for long
        ++m_signalCount;
        break;
    case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
        read(std::move(message));
        break;
    default:
        break;
    }
}

/// Nobody is to wait for somebody who never listens.
void BusSocket::refuse(GDBusMessage *call)
{
    if ((g_dbus_message_get_flags(call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) != 0)
        return;
    const GlibHandle<GDBusMessage> refusal(g_dbus_message_new_method_error_literal(
        call, "org.freedesktop.DBus.Error.UnknownMethod", "This program offers nothing on the bus."));
    post(encoded(refusal.get()));
}

} // namespace ostrel
