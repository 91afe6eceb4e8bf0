#pragma once

#include "capture/WorkspaceEvents.h"

#include <chrono>
#include <functional>
#include <memory>

namespace ostrel {

class Clock;

/// Keeps a hold on the system's sleep for as long as it lives, but no longer than `limit`: after 5 s the system goes on
/// all the same. Main thread.
class LimitedHold
{
public:
    static constexpr std::chrono::seconds limit{4};

    /// @param hold may be null
    LimitedHold(Clock &clock, std::shared_ptr<SystemHold> hold);
    LimitedHold(const LimitedHold &) = delete;
    LimitedHold &operator=(const LimitedHold &) = delete;
    ~LimitedHold();

private:
    std::shared_ptr<SystemHold> m_hold;
    std::function<void()> m_withdraw;
};

} // namespace ostrel
