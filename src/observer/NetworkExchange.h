#pragma once

#include "base/Error.h"
#include "observer/HttpTransport.h"

#include <QNetworkReply>
#include <QPointer>

#include <array>
#include <functional>
#include <memory>

QT_BEGIN_NAMESPACE
class QNetworkAccessManager;
QT_END_NAMESPACE

namespace ostrel {

class Clock;
class RequestBody;

/// Whether a request may use a connection that an earlier one left open, and leave it open in turn. The observer may
/// close such a connection in the very moment in which the request goes out, which then fails without a reason. Who
/// asks for the status a second later asks again; what changes something must not depend on luck.
bool mayShareConnection(const HttpRequest &request);

/// One request on its way, and its answer. Lives until it is answered, withdrawn, or its manager is gone.
class NetworkExchange : public std::enable_shared_from_this<NetworkExchange>
{
public:
    using Answer = std::function<void(Result<HttpAnswer>)>;

    NetworkExchange(Clock &clock, Answer answer);

    void begin(QNetworkAccessManager &manager, HttpRequest request);
    /// Closes the connection; nothing is answered any more.
    void withdraw();

private:
    void onHead();
    void onFinished();
    void finish(Result<HttpAnswer> answer);

    Clock &m_clock;
    Answer m_answer;
    QPointer<QNetworkReply> m_reply;
    RequestBody *m_body = nullptr; ///< the reply's child
    std::array<QMetaObject::Connection, 2> m_connections;
    std::function<void()> m_cancelDeadline;
};

} // namespace ostrel
