#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <thread>

namespace ostrel {

/// A question that may never be answered. It is asked at once, on a thread of its own, and that thread is left behind
/// when it hangs: so what asks owns everything it uses.
template <class T>
class LeftBehind
{
public:
    explicit LeftBehind(std::function<T()> ask)
    {
        std::packaged_task<T()> task(std::move(ask));
        m_answer = task.get_future();
        std::thread(std::move(task)).detach();
    }

    /// @return nothing when there is no answer by then; to be called once
    std::optional<T> answerBy(std::chrono::steady_clock::time_point deadline)
    {
        if (m_answer.wait_until(deadline) != std::future_status::ready)
            return std::nullopt;
        return m_answer.get();
    }

private:
    std::future<T> m_answer;
};

} // namespace ostrel
