#pragma once

#include "capture/WorkspaceEvents.h"

#include <memory>

namespace ostrel {

/// A session that sleeps, shuts down and is locked when the test says so, and that knows who holds it up.
class FakeWorkspaceEvents final : public WorkspaceEvents
{
public:
    bool isLocked() const override { return m_locked; }

    void sleep() { Q_EMIT willSleep(makeHold()); }
    void wake() { Q_EMIT didWake(); }
    void shutDown() { Q_EMIT willShutDown(makeHold()); }
    void setLocked(bool locked)
    {
        m_locked = locked;
        Q_EMIT lockedChanged(locked);
    }

    /// Whether anybody still keeps the hold of a sleep or shutdown that was announced.
    bool isHeldUp() const { return *m_liveHolds > 0; }

private:
    class Hold final : public SystemHold
    {
    public:
        explicit Hold(std::shared_ptr<int> live) : m_live(std::move(live)) { ++*m_live; }
        Hold(const Hold &) = delete;
        Hold &operator=(const Hold &) = delete;
        ~Hold() override { --*m_live; }

    private:
        const std::shared_ptr<int> m_live;
    };

    std::shared_ptr<SystemHold> makeHold() { return std::make_shared<Hold>(m_liveHolds); }

    const std::shared_ptr<int> m_liveHolds = std::make_shared<int>(0);
    bool m_locked = false;
};

} // namespace ostrel
