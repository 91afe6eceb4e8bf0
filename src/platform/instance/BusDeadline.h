#pragma once

#include "platform/sessionbus/GlibHandles.h"

#include <chrono>
#include <thread>

namespace ostrel {

/// Cancels whatever waits for the bus on this thread when its time is over, be it the connection itself: a bus that was
/// stopped takes it and then says nothing.
class BusDeadline
{
public:
    /// @param cancellable outlives this object
    BusDeadline(GCancellable *cancellable, std::chrono::milliseconds patience);
    BusDeadline(const BusDeadline &) = delete;
    BusDeadline &operator=(const BusDeadline &) = delete;

private:
    std::jthread m_timer;
};

} // namespace ostrel
