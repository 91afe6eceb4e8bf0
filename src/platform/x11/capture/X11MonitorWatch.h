#pragma once

#include "platform/x11/base/X11Connection.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace ostrel {

/// Tells when monitors may have been moved, resized, connected or disconnected. One thread at a time.
class X11MonitorWatch
{
public:
    /// Sends what it takes to be told; nothing is waited for. Whoever reads the monitors after this misses nothing.
    explicit X11MonitorWatch(std::shared_ptr<X11Connection> connection);

    /// Whether something was told since `takeNews`, as far as events have been dispatched; at first it is so.
    bool hasNews() const { return m_hasNews; }
    /// The same after dispatching; what comes later is news again.
    bool takeNews();

private:
    void handle(const xcb_generic_event_t &event);

    const std::shared_ptr<X11Connection> m_connection;
    const std::optional<std::uint8_t> m_randr; ///< its first event
    bool m_hasNews = true;
    const X11Subscription m_events;
};

} // namespace ostrel
