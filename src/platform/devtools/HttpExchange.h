#pragma once

#include "platform/devtools/LoopbackSocket.h"

#include <QByteArray>
#include <QHash>
#include <optional>

namespace ostrel {

/// The longest answer of a browser that is read, in bytes. A list of some thousand tabs fits.
constexpr qsizetype longestAnswer = qsizetype(1024) * 1024;

/// What stands before the body of an answer.
struct HttpHead {
    int status = 0;
    QHash<QByteArray, QByteArray> headers; ///< names in lower case

    bool operator==(const HttpHead &) const = default;
};

/// @param head without the empty line that ends it
/// @return nothing for what is not HTTP/1, and where a header stands twice: two lengths are two readings of one answer
std::optional<HttpHead> parseHttpHead(const QByteArray &head);

/// Sends a GET request. @param furtherHeaders each with its line break
bool sendGet(LoopbackSocket &socket, quint16 port, const QByteArray &path, const QByteArray &furtherHeaders = {});

std::optional<HttpHead> receiveHead(LoopbackSocket &socket);

/// The body of a plain 200 of known length; nothing for everything else: a redirection is not followed.
std::optional<QByteArray> httpGet(LoopbackSocket &socket, quint16 port, const QByteArray &path);

} // namespace ostrel
