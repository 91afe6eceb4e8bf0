#include "platform/devtools/LoopbackSocket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ostrel {

namespace {

constexpr std::size_t chunkSize = 65536;

/// Whether a connection that was begun has been made.
bool isConnected(int socket)
{
    int error = 0;
    socklen_t size = sizeof(error);
    return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

} // namespace

std::optional<LoopbackSocket> LoopbackSocket::connectTo(quint16 port, QDeadlineTimer deadline)
{
    LoopbackSocket connection(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), deadline);
    if (connection.m_socket < 0)
        return std::nullopt;
    // Small questions in turn, each of which waits for its answer: nothing is to be gathered.
    const int yes = 1;
    ::setsockopt(connection.m_socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int begun = ::connect(connection.m_socket, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    if (begun != 0 && (errno != EINPROGRESS || !connection.waitFor(POLLOUT) || !isConnected(connection.m_socket)))
        return std::nullopt;
    return connection;
}

LoopbackSocket::LoopbackSocket(LoopbackSocket &&other) noexcept
    : m_socket(std::exchange(other.m_socket, -1)), m_deadline(other.m_deadline), m_received(std::move(other.m_received))
{}

LoopbackSocket::~LoopbackSocket()
{
    if (m_socket >= 0)
        ::close(m_socket);
}

bool LoopbackSocket::send(const QByteArray &bytes)
{
    for (qsizetype sent = 0; sent < bytes.size();) {
        const ssize_t taken =
            ::send(m_socket, bytes.constData() + sent, std::size_t(bytes.size() - sent), MSG_NOSIGNAL);
        if (taken >= 0)
            sent += taken;
        else if (errno != EINTR && (errno != EAGAIN || !waitFor(POLLOUT)))
            return false;
    }
    return true;
}

std::optional<QByteArray> LoopbackSocket::takeUntil(const QByteArray &mark, qsizetype limit)
{
    for (qsizetype searched = 0;;) {
        const qsizetype found = m_received.indexOf(mark, searched);
        if (found > limit || (found < 0 && m_received.size() > limit))
            return std::nullopt;
        if (found >= 0) {
            QByteArray taken = m_received.first(found);
            m_received.remove(0, found + mark.size());
            return taken;
        }
        searched = std::max<qsizetype>(0, m_received.size() - mark.size() + 1);
        if (!receiveMore())
            return std::nullopt;
    }
}

std::optional<QByteArray> LoopbackSocket::take(qsizetype count)
{
    while (m_received.size() < count) {
        if (!receiveMore())
            return std::nullopt;
    }
    QByteArray taken = m_received.first(count);
    m_received.remove(0, count);
    return taken;
}

bool LoopbackSocket::waitFor(short event) const
{
    for (;;) {
        pollfd wait{.fd = m_socket, .events = event, .revents = 0};
        const int ready = ::poll(&wait, 1, int(m_deadline.remainingTime()));
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

bool LoopbackSocket::receiveMore()
{
    std::array<char, chunkSize> chunk;
    for (;;) {
        // A peer that never stops sending must not keep us beyond the deadline either.
        if (m_deadline.hasExpired())
            return false;
        const ssize_t size = ::recv(m_socket, chunk.data(), chunk.size(), 0);
        if (size > 0) {
            m_received.append(chunk.data(), size);
            return true;
        }
        if (size == 0 || (errno != EINTR && (errno != EAGAIN || !waitFor(POLLIN))))
            return false;
    }
}

} // namespace ostrel
