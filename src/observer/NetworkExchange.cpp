#include "observer/NetworkExchange.h"

#include "base/Clock.h"
#include "base/Fault.h"
#include "observer/RequestBody.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <optional>

namespace ostrel {

namespace {

/// For the whole exchange: the reply's own time-out starts anew with each byte, so a server that drips could hold a
/// request for ever.
constexpr std::chrono::seconds deadline{60};

QNetworkRequest preparedRequest(const HttpRequest &request, qint64 bodySize)
{
    QNetworkRequest prepared(request.url);
    prepared.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    prepared.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    prepared.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    prepared.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    prepared.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    prepared.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    prepared.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    prepared.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    if (!mayShareConnection(request))
        prepared.setRawHeader("Connection", "close");
    prepared.setRawHeader("User-Agent", "ostrel");
    prepared.setRawHeader("Accept-Encoding", "identity");
    for (const auto &[name, value] : request.headers)
        prepared.setRawHeader(name, value);
    // Even where there is no body: the stack would gather one of unknown length first, and could then send it twice.
    prepared.setHeader(QNetworkRequest::ContentLengthHeader, bodySize);
    return prepared;
}

/// The status code, once the head of the answer is there.
std::optional<int> statusCode(const QNetworkReply &reply)
{
    const QVariant status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    return status.isValid() ? std::optional(status.toInt()) : std::nullopt;
}

bool isSuccess(int status)
{
    return status >= 200 && status <= 299;
}

Error transportError(const QNetworkReply &reply)
{
    switch (reply.error()) {
    case QNetworkReply::ConnectionRefusedError:
        return faultError(Fault::ConnectionRefused);
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::ContentReSendError:  // it was closed, and our body refused to be sent again
    case QNetworkReply::UnknownNetworkError: // it was closed under the body: the stack has no word for a failed write
        return faultError(Fault::ConnectionClosed);
    case QNetworkReply::TimeoutError:
        return faultError(Fault::TimedOut);
    default:
        return faultError(Fault::NetworkFailed, reply.errorString());
    }
}

} // namespace

bool mayShareConnection(const HttpRequest &request)
{
    return request.method == "GET";
}

NetworkExchange::NetworkExchange(Clock &clock, Answer answer) : m_clock(clock), m_answer(std::move(answer)) {}

void NetworkExchange::begin(QNetworkAccessManager &manager, HttpRequest request)
{
    m_body = new RequestBody(std::move(request.body));
    const QNetworkRequest prepared = preparedRequest(request, m_body->byteCount());
    // As a custom verb nothing is added to the request: the stack's own POST brings a content type along.
    m_reply = manager.sendCustomRequest(prepared, request.method, m_body);
    m_body->setParent(m_reply);

    const auto self = shared_from_this(); // the connections keep us until the reply is let go
    m_connections = {QObject::connect(m_reply, &QNetworkReply::metaDataChanged, m_reply, [self] { self->onHead(); }),
                     QObject::connect(m_reply, &QNetworkReply::finished, m_reply, [self] { self->onFinished(); })};
    m_cancelDeadline =
        m_clock.schedule(deadline, [self] { self->finish(std::unexpected(faultError(Fault::TimedOut))); });
}

void NetworkExchange::onHead()
{
    const auto status = statusCode(*m_reply);
    if (status && !isSuccess(*status))
        finish(HttpAnswer{.statusCode = *status, .body = {}});
}

void NetworkExchange::onFinished()
{
    const auto status = statusCode(*m_reply);
    if (status && !isSuccess(*status))
        finish(HttpAnswer{.statusCode = *status, .body = {}});
    else if (m_reply->error() != QNetworkReply::NoError || !status)
        finish(std::unexpected(transportError(*m_reply)));
    else
        finish(HttpAnswer{.statusCode = *status, .body = m_reply->readAll()});
}

void NetworkExchange::finish(Result<HttpAnswer> answer)
{
    const auto keep = shared_from_this();
    withdraw();
    m_answer(std::move(answer));
}

void NetworkExchange::withdraw()
{
    const auto keep = shared_from_this();
    if (const auto cancel = std::exchange(m_cancelDeadline, nullptr))
        cancel();
    const auto reply = std::exchange(m_reply, nullptr);
    if (!reply)
        return;
    m_body->abandon();
    // Only our own connections go: the reply has some to itself. Its end closes the connection. To abort it here would
    // be sooner, but in the middle of its own signal the stack takes that for a fault of its own and says so.
    for (const QMetaObject::Connection &connection : m_connections)
        QObject::disconnect(connection);
    reply->deleteLater();
}

} // namespace ostrel
