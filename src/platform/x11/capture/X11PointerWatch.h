#pragma once

#include "platform/x11/base/X11Connection.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <xcb/sync.h>

namespace ostrel {

/// Knows without asking that the pointer has stayed where it was. No event tells every move but those that tell each
/// of them, a thousand a second. But the server counts the time since anybody touched an input device or moved the
/// pointer, and tells once when the count passes a limit and once when it falls back: between the two the pointer
/// rests. One thread at a time.
///
/// A move is told a turn of the server's own loop after it was made, well within a millisecond.
class X11PointerWatch
{
public:
    /// A few round trips. Where the server has no such counter, nothing is ever known.
    /// @param rest after which the pointer counts as resting; far longer than the server's loop takes to turn, and less
    ///             than 24 days, beyond which the server miscalculates how long to sleep and keeps the processor busy
    X11PointerWatch(std::shared_ptr<X11Connection> connection, std::chrono::milliseconds rest);
    X11PointerWatch(const X11PointerWatch &) = delete;
    X11PointerWatch &operator=(const X11PointerWatch &) = delete;
    ~X11PointerWatch();

    /// Says that the pointer's place is going to be asked for.
    void mark() { m_hasStayed = m_isResting; }
    /// Whether the pointer is for certain where it was at the mark, as far as events have been dispatched.
    bool hasStayed() const { return m_hasStayed; }

private:
    void findCounter();
    void start(std::chrono::milliseconds rest);
    void createAlarm(xcb_sync_alarm_t alarm, xcb_sync_testtype_t test, std::chrono::milliseconds rest) const;
    void handle(const xcb_generic_event_t &event);

    const std::shared_ptr<X11Connection> m_connection;
    xcb_sync_counter_t m_idleTime = XCB_NONE;
    xcb_sync_alarm_t m_restBegins = XCB_NONE;
    xcb_sync_alarm_t m_restEnds = XCB_NONE;
    std::uint8_t m_alarmEvent = 0;
    bool m_isResting = false;
    bool m_hasStayed = false;
    const X11Subscription m_events;
};

} // namespace ostrel
