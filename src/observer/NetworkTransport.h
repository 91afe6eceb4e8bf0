#pragma once

#include "base/SerialQueue.h"
#include "observer/HttpTransport.h"
#include "observer/PortOwner.h"

#include <QObject>
#include <functional>
#include <memory>
#include <optional>

QT_BEGIN_NAMESPACE
class QNetworkAccessManager;
QT_END_NAMESPACE

namespace ostrel {

class Clock;

/// Real requests to the loopback address, and to nothing else. Before each, the listener must prove to be a program of
/// our own user: so neither a request after a restart of the observer nor one after a failure ever shows a token or a
/// frame to a stranger who took the port. Nothing is ever sent twice. Requests that only ask share connections, until
/// one of any kind fails; all others have one of their own.
///
/// Create, use and destroy it on the main thread; it outlives its requests.
class NetworkTransport final : public HttpTransport
{
public:
    using OwnerOfPort = std::function<Result<PortOwner>(quint16 port)>;

    /// @param clock       counts the 60 seconds of a request; outlives this object
    /// @param ownerOfPort asked before each request, on a thread of its own
    explicit NetworkTransport(Clock &clock, OwnerOfPort ownerOfPort = ownerOfOurPort);
    ~NetworkTransport() override;

    /// Besides the errors of the interface: Fault::BadUrl for every address that is not http://127.0.0.1:port.
    Task<Result<HttpAnswer>> send(HttpRequest request, std::stop_token stop) override;

private:
    static Result<PortOwner> ownerOfOurPort(quint16 port);
    Task<Result<>> admit(QUrl url, std::stop_token stop);
    Task<Result<HttpAnswer>> admitAndSend(HttpRequest request, std::stop_token stop);
    std::shared_ptr<QNetworkAccessManager> sharingManager();

    Clock &m_clock;
    const OwnerOfPort m_ownerOfPort;
    /// The parent of the managers, some of which wait for the event loop to delete them.
    QObject m_managers;
    // Two, because each gives any of its requests any of its open connections.
    /// Made when it is needed. Requests under way keep the one that they began with.
    std::shared_ptr<QNetworkAccessManager> m_sharing;
    const std::shared_ptr<QNetworkAccessManager> m_separate;
    std::optional<quint16> m_refusedPort; ///< that the log has told of
    /// Where nobody listens the kernel looks through its whole table, which can take longer than a frame of the
    /// screen.
    SerialQueue m_portChecks{QStringLiteral("port checks")};
};

} // namespace ostrel
