#pragma once

#include "platform/sessionbus/GlibHandles.h"

#include <functional>

namespace ostrel {

/// Lets any thread have something done on the thread of a `BusLoop`. Made and destroyed on that thread.
class BusWaker
{
public:
    explicit BusWaker(std::function<void()> callback);
    BusWaker(const BusWaker &) = delete;
    BusWaker &operator=(const BusWaker &) = delete;
    ~BusWaker();

    /// Has the callback called soon, once for all who ask until then. Any thread; waits for nothing.
    void wake();

private:
    const std::function<void()> m_callback;
    const GlibHandle<GSource> m_source;
};

} // namespace ostrel
