#pragma once

#include "platform/portal/PipeWireRemote.h"
#include "platform/portal/PortalDisplays.h"
#include "platform/portal/PortalSession.h"

#include <atomic>
#include <chrono>
#include <memory>

namespace ostrel {

/// A session with the portal together with its pictures. One thread at a time, but for `noteLost`.
class PortalCast
{
public:
    /// Blocks for the user's answer, unless the token is good.
    /// @return the errors of `PortalSession::open` and `PipeWireRemote::connect`
    static Result<std::shared_ptr<PortalCast>> open(const PortalSession::Opening &opening);
    PortalCast(const PortalCast &) = delete;
    PortalCast &operator=(const PortalCast &) = delete;

    /// The displays as they are now. Waits for a round trip.
    PortalDisplays displays();
    PipeWireRemote &remote() { return *m_remote; }
    const QString &restoreToken() const { return m_session->restoreToken(); }
    const QStringList &monitors() const { return m_session->monitors(); }

    /// Pictures that came from here come no more. Any thread.
    void noteLost();
    /// Pictures that have ended are not explained yet: they end a moment before the session does, whoever ends it. When
    /// that moment is over and the session goes on, they were lost on their way, by nobody's wish.
    PortalSession::State state();
    /// The same, but waits for that moment. @param interrupt ends the waiting, from any thread
    PortalSession::State explainedState(GCancellable *interrupt);

private:
    PortalCast(std::unique_ptr<PortalSession> session, std::shared_ptr<PipeWireRemote> remote,
               const PortalSeams &seams);
    static constexpr auto neverLost = std::chrono::milliseconds::max();

    bool isBroken();

    const PortalSeams m_seams;
    const std::unique_ptr<PortalSession> m_session;
    const std::shared_ptr<PipeWireRemote> m_remote;
    std::atomic<std::chrono::milliseconds> m_lostAt = neverLost;
};

} // namespace ostrel
