#pragma once

#include "base/Fault.h"
#include "base/Op.h"
#include "observer/HttpTransport.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include <gtest/gtest.h>

namespace ostrel {

/// A server by script. An endpoint is "METHOD /path". A request that nothing was scripted for fails the test, and so
/// does a scripted one that never came.
class FakeHttpTransport final : public HttpTransport
{
public:
    using Answer = Result<HttpAnswer>;

    /// A request that came, its body gathered.
    struct Request {
        QByteArray method;
        QUrl url;
        QList<std::pair<QByteArray, QByteArray>> headers;
        std::optional<QByteArray> body;
    };

    /// An answer that comes only when the test gives it.
    class HeldAnswer
    {
    public:
        /// Whether the request has come.
        bool hasArrived() const { return m_resolve.has_value(); }
        /// Whether the program took the request back before it was answered.
        bool wasCancelled() const { return m_cancelled; }
        void release(Answer answer)
        {
            ASSERT_TRUE(hasArrived()) << "there is no request to answer";
            (*m_resolve)(std::move(answer));
        }

    private:
        friend class FakeHttpTransport;
        std::optional<Op<Answer>::Resolve> m_resolve;
        bool m_cancelled = false;
    };

    static Answer answer(QByteArray json, int statusCode = 200)
    {
        return HttpAnswer{.statusCode = statusCode, .body = std::move(json)};
    }
    static Answer failure(Fault fault) { return std::unexpected(faultError(fault)); }

    ~FakeHttpTransport() override
    {
        for (auto endpoint = m_scripted.begin(); endpoint != m_scripted.end(); ++endpoint)
            EXPECT_TRUE(endpoint->isEmpty())
                << endpoint->size() << " of " << endpoint.key().toStdString() << " never came";
    }

    /// Answers one request to the endpoint; several for one endpoint are used in order, before `always`.
    void expect(const QString &endpoint, Answer answer) { m_scripted[endpoint].append(Script{std::move(answer), {}}); }
    /// Holds one request to the endpoint back.
    std::shared_ptr<HeldAnswer> expectHeld(const QString &endpoint)
    {
        auto held = std::make_shared<HeldAnswer>();
        m_scripted[endpoint].append(Script{std::nullopt, held});
        return held;
    }
    /// Answers every further request to the endpoint, none included.
    void always(const QString &endpoint, Answer answer) { m_always.insert(endpoint, std::move(answer)); }
    /// From now on a request to the endpoint is unexpected again.
    void never(const QString &endpoint) { m_always.remove(endpoint); }

    const QList<Request> &requests() const { return m_requests; }
    QStringList endpoints() const
    {
        QStringList endpoints;
        std::transform(m_requests.begin(), m_requests.end(), std::back_inserter(endpoints), &endpointOf);
        return endpoints;
    }
    int count(const QString &endpoint) const { return int(endpoints().count(endpoint)); }
    void forgetRequests() { m_requests.clear(); }

    Task<Result<HttpAnswer>> send(HttpRequest request, std::stop_token stop) override
    {
        if (stop.stop_requested())
            co_return failure(Fault::Cancelled);
        m_requests.append(Request{.method = request.method,
                                  .url = request.url,
                                  .headers = request.headers,
                                  .body = gathered(std::move(request.body))});
        const QString endpoint = endpointOf(m_requests.last());
        Script script = take(endpoint);
        if (script.answer)
            co_return *std::move(script.answer);
        auto answer = co_await Op<Answer>(stop, [held = script.held](auto resolve) {
            held->m_resolve = resolve;
            return [held] { held->m_cancelled = true; };
        });
        co_return answer ? *std::move(answer) : failure(Fault::Cancelled);
    }

private:
    struct Script {
        std::optional<Answer> answer;
        std::shared_ptr<HeldAnswer> held;
    };

    /// Here and now, not on the body's queue: a held queue is for the test to hold.
    static std::optional<QByteArray> gathered(HttpBody body)
    {
        if (auto *bytes = std::get_if<QByteArray>(&body))
            return std::move(*bytes);
        const auto *streamed = std::get_if<StreamedBody>(&body);
        if (!streamed)
            return std::nullopt;
        QByteArray whole;
        for (QByteArray piece = streamed->source->nextPiece(); !piece.isEmpty(); piece = streamed->source->nextPiece())
            whole += piece;
        EXPECT_EQ(whole.size(), streamed->source->size()) << "a body of another size than it said";
        return whole;
    }

    static QString endpointOf(const Request &request)
    {
        return QString::fromLatin1(request.method) + u' ' + request.url.path();
    }

    Script take(const QString &endpoint)
    {
        if (const auto scripted = m_scripted.find(endpoint); scripted != m_scripted.end() && !scripted->isEmpty())
            return scripted->takeFirst();
        if (const auto always = m_always.find(endpoint); always != m_always.end())
            return {*always, {}};
        ADD_FAILURE() << "unexpected request " << endpoint.toStdString();
        return {failure(Fault::ConnectionRefused), {}};
    }

    QHash<QString, QList<Script>> m_scripted;
    QHash<QString, Answer> m_always;
    QList<Request> m_requests;
};

} // namespace ostrel
