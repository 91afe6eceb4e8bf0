#pragma once

#include "base/TaskSlot.h"

#include <functional>

namespace ostrel {

class Clock;
class UpdateMemory;

/// Has updates looked for once a day. It looks at the wall clock every hour: timers don't count the time that a machine
/// sleeps, and a clock that was set back must not put a check off until it has caught up. A check that failed is tried
/// again after that hour. Main thread.
class UpdateSchedule
{
public:
    /// Both outlive this object.
    UpdateSchedule(Clock &clock, UpdateMemory &memory) : m_clock(clock), m_memory(memory) {}

    /// @param check called when a check is due, at once if one is
    void start(std::function<void()> check);
    /// A check has come to its end: the next is due in a day.
    void noteCheck();

private:
    bool isDue() const;

    Clock &m_clock;
    UpdateMemory &m_memory;
    TaskSlot m_ticking;
};

} // namespace ostrel
