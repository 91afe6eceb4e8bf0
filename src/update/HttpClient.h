#pragma once

#include "base/Error.h"
#include "base/Task.h"

#include <QByteArray>
#include <QList>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUrl>

#include <memory>
#include <stop_token>
#include <utility>

namespace ostrel {

class Clock;

/// Whether updates may be fetched from an address: https, or http from this machine itself, as tests do.
bool isUpdateAddress(const QUrl &address);

/// Some bytes of an answer. (A structure, because a task that gives a Result of a type which compares itself with
/// everything does not compile with libstdc++ 12.)
struct HttpBytes {
    QByteArray bytes;
};

/// The answer to a request, whose body is taken piece by piece. Main thread. When it goes, the connection is closed.
class HttpAnswerStream
{
public:
    HttpAnswerStream(QNetworkReply *reply, Clock &clock);

    /// Waits for the head. Called once, before all else.
    Task<Result<>> head(std::stop_token stop);
    int status() const;
    QByteArray header(const char *name) const { return m_reply->rawHeader(name); }

    /// The next bytes of an answer of status 200 or 206; none at the end. A server that is silent for 30 seconds has
    /// failed (Fault::TimedOut), and so has one that closes the connection before the end.
    Task<Result<HttpBytes>> piece(std::stop_token stop);

private:
    struct DeleteLater {
        // Perhaps in the middle of one of its signals; its end closes the connection.
        void operator()(QNetworkReply *reply) const { reply->deleteLater(); }
    };

    Task<Result<>> news(std::stop_token stop);
    Error failure() const;
    bool isComplete() const;

    qint64 m_received = 0;
    std::unique_ptr<QNetworkReply, DeleteLater> m_reply;
    Clock *m_clock;
};

/// Asks update servers. Goes through no proxy, sends no cookie, keeps nothing. Main thread; it outlives its requests.
class HttpClient
{
public:
    using Headers = QList<std::pair<QByteArray, QByteArray>>;

    /// @param clock counts the silence of servers; outlives this object
    explicit HttpClient(Clock &clock);

    /// Sends a GET request, follows where it leads within the same scheme, and waits for the head of the answer.
    /// @return the answer, whatever its status; or AddressRefused, RedirectRefused, TooManyRedirects, or what the
    /// network
    ///         has to say
    Task<Result<HttpAnswerStream>> get(QUrl address, Headers headers, std::stop_token stop);

private:
    Clock &m_clock;
    QNetworkAccessManager m_manager;
};

} // namespace ostrel
