#pragma once

#include "base/Op.h"
#include "base/Task.h"

#include <deque>
#include <memory>
#include <optional>
#include <stop_token>

namespace ostrel {

/// Lets one coroutine of the main thread at a time through, in the order of asking.
class AsyncLock
{
    struct Waiter;
    struct State {
        bool held = false;
        std::deque<std::shared_ptr<Waiter>> waiting;
        void release();
    };

public:
    /// Gives the lock back when it goes. It may outlive the AsyncLock.
    class [[nodiscard]] Guard
    {
    public:
        Guard(Guard &&) noexcept = default;
        Guard &operator=(Guard &&other) noexcept;
        ~Guard();

    private:
        friend class AsyncLock;
        explicit Guard(std::shared_ptr<State> state) : m_state(std::move(state)) {}
        std::shared_ptr<State> m_state;
    };

    /// Waits for its turn. @return nothing when stopped while waiting
    Task<std::optional<Guard>> acquire(std::stop_token stop);

    bool isHeld() const { return m_state->held; }

private:
    std::shared_ptr<State> m_state = std::make_shared<State>();
};

} // namespace ostrel
