#pragma once

#include "base/Error.h"

#include <QByteArray>

#include <chrono>
#include <functional>
#include <memory>

struct wl_display;

namespace ostrel {

/// A connection to a Wayland compositor. No call waits longer than it is told to, whatever the compositor does. One
/// thread at a time.
class WaylandConnection
{
public:
    static constexpr std::chrono::milliseconds defaultPatience{5'000};

    /// @param display  as in $WAYLAND_DISPLAY; empty means that $WAYLAND_DISPLAY decides
    /// @param patience how long the compositor may keep a round trip waiting
    /// @return Fault::NoWaylandDisplay
    static Result<std::shared_ptr<WaylandConnection>> open(const QByteArray &display,
                                                           std::chrono::milliseconds patience = defaultPatience);
    ~WaylandConnection();
    WaylandConnection(const WaylandConnection &) = delete;
    WaylandConnection &operator=(const WaylandConnection &) = delete;

    wl_display *get() const { return m_display; }
    std::chrono::milliseconds patience() const { return m_patience; }

    /// True for ever after the connection was lost or given up.
    bool isBroken() const { return m_state != State::Open; }
    /// @return Fault::NoWaylandDisplay, or Fault::TimedOut when the compositor was silent for too long
    Error brokenError() const;

    /// Sends what was asked, and handles the compositor's events until the condition holds.
    /// @return whether it does; not when the time is over or the connection is lost
    bool waitUntil(const std::function<bool()> &isMet, std::chrono::milliseconds atMost);
    /// Returns when the compositor has done all that was asked before, and its events about it are handled. A
    /// compositor that takes too long is given up.
    Result<> roundTrip();
    /// Handles the events that are there already.
    void dispatchEvents();
    /// After an answer that is due has not come: nothing on this connection can be relied upon any more.
    void giveUp() { m_state = State::Silent; }

private:
    enum class State { Open, Lost, Silent };

    WaylandConnection(wl_display *display, std::chrono::milliseconds patience);
    /// Waits for events once and reads them. @return false when the time is over or the connection is lost
    bool readEvents(std::chrono::steady_clock::time_point deadline);
    bool lost();

    wl_display *const m_display;
    const std::chrono::milliseconds m_patience;
    State m_state = State::Open;
};

} // namespace ostrel
