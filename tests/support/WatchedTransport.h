#pragma once

#include "observer/HttpTransport.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>
#include <numeric>

namespace ostrel {

/// Passes requests on, and knows which are on their way.
class WatchedTransport final : public HttpTransport
{
public:
    explicit WatchedTransport(HttpTransport &next) : m_next(next) {}

    /// Called before a request goes out.
    std::function<void(const QString &endpoint)> onSend;

    int onTheirWay(const QString &endpoint) const { return m_onTheirWay.value(endpoint); }
    int onTheirWay() const { return std::accumulate(m_onTheirWay.begin(), m_onTheirWay.end(), 0); }
    QStringList endpointsOnTheirWay() const
    {
        QStringList endpoints;
        for (auto it = m_onTheirWay.begin(); it != m_onTheirWay.end(); ++it) {
            if (it.value() > 0)
                endpoints.append(it.key());
        }
        return endpoints;
    }
    int sentCount() const { return m_sentCount; }
    /// How many were answered with success.
    int answered(const QString &endpoint) const { return m_answered.value(endpoint); }

    Task<Result<HttpAnswer>> send(HttpRequest request, std::stop_token stop) override
    {
        const QString endpoint = QString::fromLatin1(request.method) + u' ' + request.url.path();
        if (onSend)
            onSend(endpoint);
        ++m_sentCount;
        ++m_onTheirWay[endpoint];
        auto answer = co_await m_next.send(std::move(request), std::move(stop));
        --m_onTheirWay[endpoint];
        if (answer && answer->statusCode == 200)
            ++m_answered[endpoint];
        co_return answer;
    }

private:
    HttpTransport &m_next;
    int m_sentCount = 0;
    QHash<QString, int> m_onTheirWay;
    QHash<QString, int> m_answered;
};

} // namespace ostrel
