#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <optional>

namespace ostrel {

/// A TCP connection to a port of 127.0.0.1, and to nowhere else, all of whose waits end at one deadline. Blocks; any
/// one thread.
class LoopbackSocket
{
public:
    /// @return nothing when nobody accepts the connection in time
    static std::optional<LoopbackSocket> connectTo(quint16 port, QDeadlineTimer deadline);

    LoopbackSocket(LoopbackSocket &&other) noexcept;
    LoopbackSocket(const LoopbackSocket &) = delete;
    LoopbackSocket &operator=(const LoopbackSocket &) = delete;
    ~LoopbackSocket();

    /// @return false when the other side has gone or did not take it all in time
    bool send(const QByteArray &bytes);

    /// What arrives up to a mark, the mark itself left out.
    /// @return nothing when the mark does not come in time or within that many bytes
    std::optional<QByteArray> takeUntil(const QByteArray &mark, qsizetype limit);

    /// Exactly that many bytes; nothing when they do not all come in time.
    std::optional<QByteArray> take(qsizetype count);

private:
    LoopbackSocket(int socket, QDeadlineTimer deadline) : m_socket(socket), m_deadline(deadline) {}

    bool waitFor(short event) const;
    /// Waits for more. @return false at the end of the connection, or of the time
    bool receiveMore();

    int m_socket;
    QDeadlineTimer m_deadline;
    QByteArray m_received; ///< and not taken yet
};

} // namespace ostrel
