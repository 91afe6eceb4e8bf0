#pragma once

#include "support/MockService.h"

namespace ostrel {

/// logind as a program on a test's system bus sees it, with one session of ours. Nothing sleeps. Main thread.
class TestLogind
{
public:
    static constexpr const char *sessionId = "c7";

    explicit TestLogind(SystemBus &bus);

    /// What logind tells before a sleep (true) and after it (false).
    void prepareForSleep(bool isStart) { emitFlag("PrepareForSleep", isStart); }
    void prepareForShutdown(bool isStart) { emitFlag("PrepareForShutdown", isStart); }

    /// Who holds up sleep and shutdown now, with what they say, as text.
    QByteArray inhibitors() const;
    int inhibitorCount() const { return int(inhibitors().count("Tamsk Ostrel")); }

    /// Asks for the session's lock, or for its end.
    void requestLock(bool isLock);
    /// What the session's locker says.
    void setLockedHint(bool isLocked);

    MockService &service() { return m_service; }
    MockService::Object session() const;
    void restart();

private:
    void emitFlag(const char *signal, bool value);
    void addSession();

    MockService m_service;
};

} // namespace ostrel
