#include "base/AsyncLock.h"

#include <functional>
#include <variant>

namespace ostrel {

struct AsyncLock::Waiter {
    std::function<void()> admit;
    bool withdrawn = false;
};

void AsyncLock::State::release()
{
    while (!waiting.empty()) {
        const auto next = waiting.front();
        waiting.pop_front();
        if (next->withdrawn)
            continue;
        next->admit(); // the lock passes on; it is never free in between
        return;
    }
    held = false;
}

AsyncLock::Guard &AsyncLock::Guard::operator=(Guard &&other) noexcept
{
    Guard replaced(std::move(*this)); // gives back what this one held
    m_state = std::move(other.m_state);
    return *this;
}

AsyncLock::Guard::~Guard()
{
    if (m_state)
        m_state->release();
}

Task<std::optional<AsyncLock::Guard>> AsyncLock::acquire(std::stop_token stop)
{
    const auto state = m_state;
    if (stop.stop_requested())
        co_return std::nullopt;
    if (!state->held) {
        state->held = true;
        co_return Guard(state);
    }
    const auto admitted = co_await Op<std::monostate>(std::move(stop), [state](auto resolve) {
        auto waiter = std::make_shared<Waiter>([resolve] { resolve({}); });
        state->waiting.push_back(waiter);
        return [waiter] { waiter->withdrawn = true; };
    });
    if (!admitted)
        co_return std::nullopt;
    co_return Guard(state);
}

} // namespace ostrel
