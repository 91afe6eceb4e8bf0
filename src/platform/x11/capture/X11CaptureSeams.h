#pragma once

#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11ChangeTracker.h"

#include <chrono>
#include <functional>
#include <memory>

namespace ostrel {

/// Where a test takes hold: time, and what is told of the screen's changes.
struct X11CaptureSeams {
    /// How long the server may be silent.
    std::chrono::milliseconds patience = X11Connection::defaultPatience;
    /// Time that only ever goes on, from any beginning.
    std::function<std::chrono::milliseconds()> monotonicTime = [] {
        const auto sinceBoot = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::milliseconds>(sinceBoot);
    };
    /// How long nobody must have touched the pointer before it is not asked for any more.
    std::chrono::milliseconds pointerRest{1'000};
    /// One tracker for each screenshotter; null fetches every picture whole.
    std::function<std::unique_ptr<X11ChangeTracker>(std::shared_ptr<X11Connection>)> makeTracker = makeDamageTracker;
};

} // namespace ostrel
