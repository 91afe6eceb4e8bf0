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
    auto remote = PipeWireRemote::connect(*descriptor, opening.seams.patience);
    if (!remote)
        return std::unexpected(remote.error());
    return std::shared_ptr<PortalCast>(new PortalCast(*std::move(session), *std::move(remote), opening.seams));
}

PortalCast::PortalCast(std::unique_ptr<PortalSession> session, std::shared_ptr<PipeWireRemote> remote,
                       const PortalSeams &seams)
    : m_seams(seams), m_session(std::move(session)), m_remote(std::move(remote))
{}

PortalDisplays PortalCast::displays()
{
    QList<quint32> nodes;
    for (const PortalStreamFacts &stream : m_session->streams())
        nodes.append(stream.node);
    return portalDisplays(m_session->streams(), m_remote->pictureSizes(nodes, m_seams.patience));
}

void PortalCast::noteLost()
{
    auto never = neverLost;
    m_lostAt.compare_exchange_strong(never, m_seams.monotonicTime());
}

bool PortalCast::isBroken()
{
    const PipeWireRemote::Lock lock(*m_remote);
    return m_remote->isBroken();
}

PortalSession::State PortalCast::state()
{
    const PortalSession::State state = m_session->state();
    if (state != PortalSession::State::Open)
        return state;
    if (isBroken())
        return PortalSession::State::Lost;
    const std::chrono::milliseconds lostAt = m_lostAt;
    if (lostAt == neverLost)
        return state;
    const bool isTimeOver = m_seams.monotonicTime() - lostAt > m_seams.reasonPatience;
    return isTimeOver ? PortalSession::State::Lost : PortalSession::State::Unexplained;
}

PortalSession::State PortalCast::explainedState(GCancellable *interrupt)
{
    const PortalSession::State before = state();
    if (before != PortalSession::State::Unexplained)
        return before;
    const PortalSession::State state = m_session->explainedState(interrupt);
    return state == PortalSession::State::Open ? PortalSession::State::Lost : state;
}

} // namespace ostrel
