#pragma once

#include "platform/logind/WorkspaceNews.h"
#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/BusSignals.h"

#include <QByteArray>

#include <memory>
#include <optional>

namespace ostrel {

/// What logind tells of our session's lock: that somebody wants it locked or unlocked, and whether its locker says that
/// it is. The thread of the connection.
class SessionLockWatch
{
public:
    explicit SessionLockWatch(TellNews tell) : m_tell(std::move(tell)) {}

    /// Finds our session and follows it; also after logind was started anew. Blocks on bounded calls. Where we are in
    /// no session, as on a server, nothing is locked.
    void follow(const BusLine &line);
    /// Knows nothing any more.
    void leave();

private:
    void tellHint(bool isLocked) { m_tell(News::Lock{.voice = LockState::Voice::Session, .isLocked = isLocked}); }

    const TellNews m_tell;
    QByteArray m_path;
    std::unique_ptr<BusSignals> m_signals;
};

} // namespace ostrel
