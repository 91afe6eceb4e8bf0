#include "observer/NetworkTransport.h"

#include "base/Clock.h"
#include "base/Fault.h"
#include "base/Log.h"
#include "base/Op.h"
#include "observer/NetworkExchange.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkRequest>

#include <unistd.h>
#include <utility>

namespace ostrel {

namespace {

std::shared_ptr<QNetworkAccessManager> makeManager(QObject &parent)
{
    // The last to let go may be in the middle of a signal of one of its replies.
    const std::shared_ptr<QNetworkAccessManager> manager(new QNetworkAccessManager(&parent),
                                                         [](QNetworkAccessManager *old) { old->deleteLater(); });
    // Set on the manager, this beats whatever the environment or the desktop says.
    manager->setProxy(QNetworkProxy::NoProxy);
    // The default policy would carry our token to wherever the answer points.
    manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    return manager;
}

} // namespace

NetworkTransport::NetworkTransport(Clock &clock, OwnerOfPort ownerOfPort)
    : m_clock(clock), m_ownerOfPort(std::move(ownerOfPort)), m_separate(makeManager(m_managers))
{}

NetworkTransport::~NetworkTransport() = default;

Result<PortOwner> NetworkTransport::ownerOfOurPort(quint16 port)
{
    return portOwner(port, ::geteuid());
}

Task<Result<>> NetworkTransport::admit(QUrl url, std::stop_token stop)
{
    if (!url.isValid() || url.scheme() != QLatin1String("http") || url.host() != QLatin1String("127.0.0.1"))
        co_return std::unexpected(faultError(Fault::BadUrl, url.toString()));
    const auto port = quint16(url.port(80));
    const auto owner = co_await m_portChecks.run(std::move(stop), [ask = m_ownerOfPort, port] { return ask(port); });
    if (!owner)
        co_return std::unexpected(faultError(Fault::Cancelled));
    if (!*owner)
        co_return std::unexpected(faultError(Fault::NetworkFailed, owner->error().localizedDescription));
    if (**owner == PortOwner::AnotherUser) {
        // Whoever waits for the observer asks four times a second.
        if (std::exchange(m_refusedPort, port) != port)
            qCWarning(logObserver, "port %u belongs to a program of another user: nothing is sent", port);
        co_return std::unexpected(faultError(Fault::PortTaken, QString::number(port)));
    }
    m_refusedPort.reset();
    // Not left to the kernel: a stranger may begin to listen before we connect, and do so again and again until it
    // happens to be just then.
    if (**owner == PortOwner::Nobody)
        co_return std::unexpected(faultError(Fault::ConnectionRefused));
    co_return Result<>();
}

std::shared_ptr<QNetworkAccessManager> NetworkTransport::sharingManager()
{
    if (!m_sharing)
        m_sharing = makeManager(m_managers);
    return m_sharing;
}

Task<Result<HttpAnswer>> NetworkTransport::send(HttpRequest request, std::stop_token stop)
{
    auto answer = co_await admitAndSend(std::move(request), std::move(stop));
    // The port may have passed to another program since, and the next check be true of that one alone: a kept
    // connection still leads to the former. A request that was taken back tells nothing of that kind.
    if (!answer && !isFault(answer.error(), Fault::Cancelled))
        m_sharing.reset();
    co_return answer;
}

Task<Result<HttpAnswer>> NetworkTransport::admitAndSend(HttpRequest request, std::stop_token stop)
{
    const Result<> admitted = co_await admit(request.url, stop);
    if (!admitted)
        co_return std::unexpected(admitted.error());
    const auto manager = mayShareConnection(request) ? sharingManager() : m_separate;
    auto answer = co_await Op<Result<HttpAnswer>>(std::move(stop), [this, &manager, &request](auto resolve) {
        const auto exchange = std::make_shared<NetworkExchange>(m_clock, std::move(resolve));
        exchange->begin(*manager, std::move(request));
        return [exchange] { exchange->withdraw(); };
    });
    if (!answer)
        co_return std::unexpected(faultError(Fault::Cancelled));
    co_return *std::move(answer);
}

} // namespace ostrel
