#pragma once

#include "base/Error.h"
#include "base/Task.h"

#include <QByteArray>
#include <QList>
#include <QUrl>
#include <optional>
#include <stop_token>
#include <utility>

namespace ostrel {

struct HttpRequest {
    QByteArray method; ///< "GET", "POST" or "PUT"
    QUrl url;
    QList<std::pair<QByteArray, QByteArray>> headers;
    std::optional<QByteArray> body;
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
