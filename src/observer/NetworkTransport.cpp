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

std::unique_ptr<QNetworkAccessManager> makeManager()
{
    auto manager = std::make_unique<QNetworkAccessManager>();
    // Set on the manager, this beats whatever the environment or the desktop says.
    manager->setProxy(QNetworkProxy::NoProxy);
    // The default policy would carry our token to wherever the answer points.
    manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    return manager;
}

} // namespace

NetworkTransport::NetworkTransport(Clock &clock, OwnerOfPort ownerOfPort)
    : m_clock(clock), m_ownerOfPort(std::move(ownerOfPort)), m_sharing(makeManager()), m_separate(makeManager())
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

Task<Result<HttpAnswer>> NetworkTransport::send(HttpRequest request, std::stop_token stop)
{
    const Result<> admitted = co_await admit(request.url, stop);
    if (!admitted)
        co_return std::unexpected(admitted.error());
    auto answer = co_await Op<Result<HttpAnswer>>(std::move(stop), [this, &request](auto resolve) {
        const auto exchange = std::make_shared<NetworkExchange>(m_clock, std::move(resolve));
        exchange->begin(mayShareConnection(request) ? *m_sharing : *m_separate, std::move(request));
        return [exchange] { exchange->withdraw(); };
    });
    if (!answer)
        co_return std::unexpected(faultError(Fault::Cancelled));
    co_return *std::move(answer);
}

} // namespace ostrel
