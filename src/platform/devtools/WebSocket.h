#pragma once

#include "platform/devtools/LoopbackSocket.h"

#include <QByteArray>
#include <optional>

namespace ostrel {

/// The client's end of a WebSocket, as far as a debugging port needs it: whole text messages, no extensions. It sends
/// no Origin, by which a browser tells a program of the user's from a web page.
class WebSocket
{
public:
    /// @return nothing where the other side does not agree
    static std::optional<WebSocket> open(LoopbackSocket socket, quint16 port, const QByteArray &path);

    /// @param text UTF-8, up to 65,535 bytes
    bool send(const QByteArray &text);
    /// The next message. Nothing when none comes in time, when it is too long, and for every kind of message that no
    /// browser sends here: fragments, binary ones, the closing one.
    std::optional<QByteArray> receive();

private:
    explicit WebSocket(LoopbackSocket socket) : m_socket(std::move(socket)) {}

    LoopbackSocket m_socket;
};

} // namespace ostrel
