#pragma once

#include "base/Error.h"
#include "base/Task.h"

#include <QByteArray>
#include <QList>
#include <QUrl>
#include <memory>
#include <stop_token>
#include <utility>
#include <variant>

namespace ostrel {

class SerialQueue;

/// A body that is made while it is sent, piece by piece, so that it need never be in memory as a whole. It can be read
/// once. One thread at a time.
class BodySource
{
public:
    virtual ~BodySource() = default;

    /// The bytes of all pieces together: known before the first one, and exact.
    virtual qint64 size() const = 0;
    /// The next piece; empty after the last one.
    virtual QByteArray nextPiece() = 0;
};

/// A source, and the queue on which its pieces are made; the queue outlives the request.
struct StreamedBody {
    std::shared_ptr<BodySource> source;
    SerialQueue *worker = nullptr;
};

/// None, the bytes themselves, or a source of them.
using HttpBody = std::variant<std::monostate, QByteArray, StreamedBody>;

struct HttpRequest {
    QByteArray method; ///< "GET", "POST" or "PUT"
    QUrl url;
    QList<std::pair<QByteArray, QByteArray>> headers;
    HttpBody body;
};

struct HttpAnswer {
    int statusCode = 0;
    QByteArray body; ///< empty unless the status code is 200 to 299: no other body is ever read
};

/// Sends one request and gathers the whole answer. Redirects are not followed, no proxy is used, and the whole
/// exchange has 60 seconds. Main thread.
class HttpTransport
{
public:
    virtual ~HttpTransport() = default;

    /// @return Fault::ConnectionRefused, TimedOut, PortTaken, ConnectionClosed, NetworkFailed; Cancelled when stopped
    virtual Task<Result<HttpAnswer>> send(HttpRequest request, std::stop_token stop) = 0;
};

} // namespace ostrel
