#pragma once

#include "platform/wlroots/WaylandConnection.h"

#include <chrono>
#include <functional>

namespace ostrel {

/// How long a capture waits, and by which clock.
struct WlrCaptureSeams {
    /// How long the compositor may be silent.
    std::chrono::milliseconds patience = WaylandConnection::defaultPatience;
    /// A compositor that has not drawn by then has nothing new to show. It draws at once when it has, so three frames
    /// at 60 a second are enough; one that is slower tells its changes to a later request.
    std::chrono::milliseconds unchangedAfter{50};
    /// How often a picture is fetched whole, whatever the compositor says of changes.
    std::chrono::milliseconds wholeEvery{30'000};
    /// By then windows are shown where the compositor said that they would be. Sway gives programs 200 ms to draw, and
    /// has a second change wait for the first.
    std::chrono::milliseconds privateCalmAfter{450};
    /// How long a picture waits while private windows keep moving.
    std::chrono::milliseconds privateCalmAtMost{1'000};
    /// Time that only ever goes on, from any beginning.
    std::function<std::chrono::milliseconds()> monotonicTime = [] {
        const auto sinceBoot = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::milliseconds>(sinceBoot);
    };
};

} // namespace ostrel
