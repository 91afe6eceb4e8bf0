#include "observer/NetworkExchange.h"

#include "base/Clock.h"
#include "base/Fault.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <algorithm>
#include <cstring>
#include <optional>

namespace ostrel {

namespace {

/// For the whole exchange: the reply's own time-out starts anew with each byte, so a server that drips could hold a
/// request for ever.
constexpr std::chrono::seconds deadline{60};

/// A body that can be read once. When a connection closes before its answer, the network stack would send the request
/// again by itself; it can't where the body won't rewind. Whether to try again is the caller's to decide.
class OneShotBody final : public QIODevice
{
public:
    explicit OneShotBody(QByteArray bytes) : m_bytes(std::move(bytes))
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }

    bool isSequential() const override { return true; }
    bool reset() override { return false; }
    bool atEnd() const override { return m_position == m_bytes.size(); }
    qint64 bytesAvailable() const override { return m_bytes.size() - m_position; }

protected:
    qint64 readData(char *target, qint64 capacity) override
    {
        const qint64 count = std::min(capacity, m_bytes.size() - m_position);
        if (count == 0 && capacity > 0)
            return -1; // the end
        std::memcpy(target, m_bytes.constData() + m_position, size_t(count));
        m_position += count;
        return count;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    const QByteArray m_bytes;
    qint64 m_position = 0;
};

QNetworkRequest preparedRequest(const HttpRequest &request)
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
    // A connection kept open may be closed by the observer in the moment of the next request, which would then fail
    // without a reason.
    prepared.setRawHeader("Connection", "close");
    prepared.setRawHeader("User-Agent", "ostrel");
    prepared.setRawHeader("Accept-Encoding", "identity");
    for (const auto &[name, value] : request.headers)
        prepared.setRawHeader(name, value);
    // Even where there is no body: the stack would gather one of unknown length first, and could then send it twice.
    prepared.setHeader(QNetworkRequest::ContentLengthHeader, request.body.value_or(QByteArray()).size());
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

NetworkExchange::NetworkExchange(Clock &clock, Answer answer) : m_clock(clock), m_answer(std::move(answer)) {}

void NetworkExchange::begin(QNetworkAccessManager &manager, HttpRequest request)
{
    const QNetworkRequest prepared = preparedRequest(request);
    // As a custom verb nothing is added to the request: the stack's own POST brings a content type along.
    auto *body = new OneShotBody(std::move(request.body).value_or(QByteArray()));
    m_reply = manager.sendCustomRequest(prepared, request.method, body);
    body->setParent(m_reply);

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
    // Only our own connections go: the reply has some to itself. Its end closes the connection. To abort it here would
    // be sooner, but in the middle of its own signal the stack takes that for a fault of its own and says so.
    for (const QMetaObject::Connection &connection : m_connections)
        QObject::disconnect(connection);
    reply->deleteLater();
}

} // namespace ostrel
