#pragma once

#include "base/Task.h"

#include <chrono>
#include <functional>
#include <stop_token>

namespace ostrel {

/// All time comes from here, so that a test can make minutes pass in no time. Main thread, except `nowMs`.
class Clock
{
public:
    virtual ~Clock() = default;

    /// Wall-clock milliseconds since 1970, truncated. Any thread.
    virtual qint64 nowMs() const = 0;

    /// Calls back once, after that much monotonic time.
    /// @return withdraws the call; harmless after it was made
    virtual std::function<void()> schedule(std::chrono::milliseconds delay, std::function<void()> callback) = 0;

    /// @return true when the time has passed, false when it was stopped before
    Task<bool> sleepFor(std::chrono::milliseconds duration, std::stop_token stop);
};

/// The real time. Create it, use it and destroy it on the main thread.
class SystemClock final : public Clock
{
public:
    qint64 nowMs() const override;
    std::function<void()> schedule(std::chrono::milliseconds delay, std::function<void()> callback) override;
};

} // namespace ostrel
