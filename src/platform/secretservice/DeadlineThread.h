#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <thread>
#include <type_traits>

namespace ostrel {

/// A thread for calls that may never return, such as those to a daemon that has been stopped. Whoever calls waits for a
/// limited time; from then until the overdue call has returned, every other call is answered at once with nothing.
/// So any number of calls costs one waiting time.
class DeadlineThread
{
public:
    DeadlineThread();
    DeadlineThread(const DeadlineThread &) = delete;
    DeadlineThread &operator=(const DeadlineThread &) = delete;
    /// Waits for the thread to end, but not for long: one that hangs is left behind. Make a hanging job return first.
    ~DeadlineThread();

    /// Runs a job on the thread. Any other thread; jobs run one after the other. A job that was given up before it
    /// began does not begin.
    /// @param job gets a token that is stopped when its caller has given up: it must change nothing then
    /// @return the job's answer, or nothing when it came too late
    template <class F, class R = std::invoke_result_t<F, std::stop_token>>
    std::optional<R> call(std::chrono::milliseconds patience, F job)
    {
        // Shared with a job that outlives this call. The answer is written before the job is reported as done.
        auto answer = std::make_shared<std::optional<R>>();
        const bool done = runWithin(patience, [answer, job = std::move(job)](const std::stop_token &givenUp) {
            answer->emplace(job(givenUp));
        });
        return done ? std::move(*answer) : std::nullopt;
    }

private:
    using Job = std::function<void(std::stop_token)>;
    struct State;

    bool runWithin(std::chrono::milliseconds patience, Job job);
    static void work(const std::shared_ptr<State> &state);

    const std::shared_ptr<State> m_state;
    std::thread m_thread;
};

} // namespace ostrel
