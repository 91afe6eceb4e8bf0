#include "update/HttpClient.h"

#include "base/Clock.h"
#include "base/Fault.h"
#include "base/Op.h"
#include "base/Text.h"
#include "update/UpdateFault.h"

#include <QHostAddress>
#include <QNetworkProxy>
#include <QNetworkRequest>

namespace ostrel {

namespace {

constexpr std::chrono::seconds longestSilence{30};
constexpr int mostRedirects = 5;
/// How much waits to be taken; beyond it the server has to wait.
constexpr qint64 bufferSize = qint64(256) * 1024;

QNetworkRequest requestFor(const QUrl &address, const HttpClient::Headers &headers)
{
    QNetworkRequest request(address);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    request.setRawHeader("User-Agent", "ostrel");
    // The stack would tell the user's languages.
    request.setRawHeader("Accept-Language", "*");
    // What is resumed and counted are the archive's own bytes.
    request.setRawHeader("Accept-Encoding", "identity");
    for (const auto &[name, value] : headers)
        request.setRawHeader(name, value);
    return request;
}

bool isRedirect(int status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

} // namespace

bool isUpdateAddress(const QUrl &address)
{
    if (!address.isValid() || address.host().isEmpty() || !address.userInfo().isEmpty())
        return false;
    // A name could lead anywhere; the numbers can't.
    return address.scheme() == QLatin1String("https") ||
           (address.scheme() == QLatin1String("http") && QHostAddress(address.host()).isLoopback());
}

HttpAnswerStream::HttpAnswerStream(QNetworkReply *reply, Clock &clock) : m_reply(reply), m_clock(&clock)
{
    m_reply->setReadBufferSize(bufferSize);
}

int HttpAnswerStream::status() const
{
    return m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

Error HttpAnswerStream::failure() const
{
    switch (m_reply->error()) {
    case QNetworkReply::ConnectionRefusedError:
        return faultError(Fault::ConnectionRefused);
    case QNetworkReply::RemoteHostClosedError:
        return faultError(Fault::ConnectionClosed);
    default:
        return faultError(Fault::NetworkFailed, m_reply->errorString());
    }
}

Task<Result<>> HttpAnswerStream::news(std::stop_token stop)
{
    QObject listener;
    std::function<void()> endWaiting;
    const auto came = co_await Op<bool>(std::move(stop), [&](auto resolve) {
        // Through the event loop: whoever is resumed may let the reply go, which is no good within its signals.
        const auto wake = [resolve] { resolve(true); };
        QObject::connect(m_reply.get(), &QNetworkReply::readyRead, &listener, wake, Qt::QueuedConnection);
        QObject::connect(m_reply.get(), &QNetworkReply::metaDataChanged, &listener, wake, Qt::QueuedConnection);
        QObject::connect(m_reply.get(), &QNetworkReply::finished, &listener, wake, Qt::QueuedConnection);
        endWaiting = m_clock->schedule(longestSilence, [resolve] { resolve(false); });
        return [&endWaiting] { endWaiting(); };
    });
    if (!came)
        co_return std::unexpected(faultError(Fault::Cancelled));
    endWaiting();
    if (!*came)
        co_return std::unexpected(faultError(Fault::TimedOut));
    co_return Result<>();
}

Task<Result<>> HttpAnswerStream::head(std::stop_token stop)
{
    while (status() == 0) {
        if (m_reply->isFinished())
            co_return std::unexpected(failure());
        if (const auto came = co_await news(stop); !came)
            co_return came;
    }
    co_return Result<>();
}

Task<Result<HttpBytes>> HttpAnswerStream::piece(std::stop_token stop)
{
    while (m_reply->bytesAvailable() == 0) {
        if (m_reply->isFinished() && m_reply->error() != QNetworkReply::NoError)
            co_return std::unexpected(failure());
        if (m_reply->isFinished() && !isComplete())
            co_return std::unexpected(faultError(Fault::ConnectionClosed));
        if (m_reply->isFinished())
            co_return HttpBytes();
        if (const auto came = co_await news(stop); !came)
            co_return std::unexpected(came.error());
    }
    HttpBytes next{m_reply->read(bufferSize)};
    m_received += next.bytes.size();
    co_return next;
}

/// The stack sometimes takes a connection that was cut for one that has ended.
bool HttpAnswerStream::isComplete() const
{
    const auto announced = parseInteger(QString::fromLatin1(header("Content-Length")));
    return !announced || m_received >= *announced;
}

HttpClient::HttpClient(Clock &clock) : m_clock(clock)
{
    // Set on the manager, this beats whatever the environment or the desktop says.
    m_manager.setProxy(QNetworkProxy::NoProxy);
    m_manager.setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
}

Task<Result<HttpAnswerStream>> HttpClient::get(QUrl address, Headers headers, std::stop_token stop)
{
    if (!isUpdateAddress(address))
        co_return std::unexpected(updateError(UpdateFault::AddressRefused, harmless(address.toDisplayString())));
    for (int redirects = 0; redirects <= mostRedirects; ++redirects) {
        HttpAnswerStream answer(m_manager.get(requestFor(address, headers)), m_clock);
        if (const auto head = co_await answer.head(stop); !head)
            co_return std::unexpected(head.error());
        if (!isRedirect(answer.status()))
            co_return answer;
        const QUrl next = address.resolved(QUrl::fromEncoded(answer.header("Location"), QUrl::StrictMode));
        if (!isUpdateAddress(next) || next.scheme() != address.scheme())
            co_return std::unexpected(updateError(UpdateFault::RedirectRefused, harmless(next.toDisplayString())));
        address = next;
    }
    co_return std::unexpected(updateError(UpdateFault::TooManyRedirects));
}

} // namespace ostrel
