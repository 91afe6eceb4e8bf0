#include "platform/sway/SwayConnection.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace ostrel {

namespace {

using Deadline = std::chrono::steady_clock::time_point;

constexpr char magic[] = {'i', '3', '-', 'i', 'p', 'c'};
constexpr quint32 mostBytes = 16'000'000;

/// What stands before every message: both numbers are in the machine's own byte order.
struct Header {
    char mark[sizeof(magic)];
    quint32 length;
    quint32 type;
} __attribute__((packed));

/// A connection that never waits past its deadline.
class Socket
{
public:
    Socket(const QByteArray &path, Deadline deadline)
        : m_deadline(deadline), m_descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (m_descriptor < 0 || path.isEmpty() || path.size() >= qsizetype(sizeof(address.sun_path)))
            return;
        std::memcpy(address.sun_path, path.constData(), std::size_t(path.size()));
        m_isConnected = ::connect(m_descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    ~Socket()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }

    bool isConnected() const { return m_isConnected; }

    bool send(const void *bytes, std::size_t count) const
    {
        return transfer(static_cast<const char *>(bytes), count, POLLOUT, [this](const char *from, std::size_t left) {
            return ::send(m_descriptor, from, left, MSG_NOSIGNAL);
        });
    }

    bool receive(void *bytes, std::size_t count) const
    {
        return transfer(static_cast<char *>(bytes), count, POLLIN,
                        [this](char *to, std::size_t left) { return ::recv(m_descriptor, to, left, 0); });
    }

private:
    template <typename Byte, typename Step>
    bool transfer(Byte *bytes, std::size_t count, short readiness, Step step) const
    {
        while (count > 0) {
            const ssize_t done = step(bytes, count);
            if (done > 0) {
                bytes += done;
                count -= std::size_t(done);
            } else if (done == 0 || (errno != EAGAIN && errno != EINTR) || !waitFor(readiness)) {
                return false;
            }
        }
        return true;
    }

    bool waitFor(short readiness) const
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_deadline - std::chrono::steady_clock::now());
        pollfd waiting{m_descriptor, readiness, 0};
        return left.count() > 0 && ::poll(&waiting, 1, int(left.count())) != 0;
    }

    const Deadline m_deadline;
    const int m_descriptor;
    bool m_isConnected = false;
};

} // namespace

std::optional<QByteArray> askSway(const QByteArray &socketPath, SwayQuestion question, std::chrono::milliseconds atMost)
{
    const Socket socket(socketPath, std::chrono::steady_clock::now() + atMost);
    if (!socket.isConnected())
        return std::nullopt;
    Header header{.mark = {}, .length = 0, .type = std::to_underlying(question)};
    std::memcpy(header.mark, magic, sizeof(magic));
    if (!socket.send(&header, sizeof(header)) || !socket.receive(&header, sizeof(header)))
        return std::nullopt;
    const bool isAnswer = std::memcmp(header.mark, magic, sizeof(magic)) == 0 &&
                          header.type == std::to_underlying(question) && header.length <= mostBytes;
    if (!isAnswer)
        return std::nullopt;
    // Grows with what comes: a length alone is only a claim.
    constexpr quint32 pieceBytes = 256 * 1024;
    QByteArray answer;
    while (quint32(answer.size()) < header.length) {
        const qsizetype before = answer.size();
        const quint32 piece = qMin(pieceBytes, header.length - quint32(before));
        answer.resize(before + qsizetype(piece));
        if (!socket.receive(answer.data() + before, piece))
            return std::nullopt;
    }
    return answer;
}

} // namespace ostrel
