#pragma once

#include "platform/logind/SessionLockWatch.h"
#include "platform/logind/SleepInhibitor.h"
#include "platform/logind/WorkspaceNews.h"
#include "platform/sessionbus/BusSignals.h"
#include "platform/sessionbus/BusThread.h"

#include <chrono>
#include <memory>

namespace ostrel {

/// Listens to logind on the system bus: sleep, shutdown, and the lock of our session. Holds an inhibitor for as long as
/// nothing happens.
class LogindWatch final : public BusVisitor
{
public:
    /// @param firstPause before another try where logind refuses the inhibitor; it doubles with each refusal
    LogindWatch(TellNews tell, std::chrono::milliseconds firstPause);

    void visit(const BusLine &line, BusLoop &loop) override;
    void leave() override;

private:
    void begin();
    void prepareForSleep(bool isStart);
    void prepareForShutdown(bool isStart);
    void wakeIfAsleep();
    void takeInhibitor();
    void tryInhibitorLater();

    const TellNews m_tell;
    const std::chrono::milliseconds m_firstPause;
    SleepInhibitor m_inhibitor;
    SessionLockWatch m_sessionLock;
    bool m_isAsleep = false;
    /// Of this visit.
    BusLine m_line;
    BusLoop *m_loop = nullptr;
    std::unique_ptr<BusSignals> m_signals;
    std::chrono::milliseconds m_pause;
    std::unique_ptr<BusTimer> m_nextTry; ///< there while logind refuses
};

} // namespace ostrel
