#include "platform/portal/PortalCast.h"

#include <utility>

namespace ostrel {

Result<std::shared_ptr<PortalCast>> PortalCast::open(const PortalSession::Opening &opening)
{
    auto session = PortalSession::open(opening);
    if (!session)
        return std::unexpected(session.error());
    const auto descriptor = (*session)->openPipeWire();
    if (!descriptor)
        return std::unexpected(descriptor.error());
    auto remote = PipeWireRemote::connect(*descriptor, opening.patience);
    if (!remote)
        return std::unexpected(remote.error());
    return std::shared_ptr<PortalCast>(new PortalCast(*std::move(session), *std::move(remote), opening.patience));
}

PortalCast::PortalCast(std::unique_ptr<PortalSession> session, std::shared_ptr<PipeWireRemote> remote,
                       std::chrono::milliseconds patience)
    : m_patience(patience), m_session(std::move(session)), m_remote(std::move(remote))
{}

PortalDisplays PortalCast::displays()
{
    QList<quint32> nodes;
    for (const PortalStreamFacts &stream : m_session->streams())
        nodes.append(stream.node);
    return portalDisplays(m_session->streams(), m_remote->pictureSizes(nodes, m_patience));
}

PortalSession::State PortalCast::state()
{
    const PortalSession::State state = m_session->state();
    if (state != PortalSession::State::Open)
        return state;
    const PipeWireRemote::Lock lock(*m_remote);
    return m_isLost || m_remote->isBroken() ? PortalSession::State::Lost : state;
}

} // namespace ostrel
