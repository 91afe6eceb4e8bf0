#pragma once

#include "base/Log.h"
#include "base/Task.h"

#include <exception>
#include <memory>
#include <stop_token>
#include <type_traits>
#include <utility>

namespace ostrel {

/// What a slot or a scope starts: a callable that makes a task. The callable, captures included, lives until the
/// task has ended, so a lambda coroutine may use its captures throughout.
template <class F>
concept TaskMaker = std::is_same_v<std::invoke_result_t<F, std::stop_token>, Task<>>;

/// Holds at most one task. Starting another one replaces it: the old one is cancelled first. So does destruction.
/// Cancelling from inside the task itself only asks it to end. Make it the last member of its owner. Main thread.
class TaskSlot
{
public:
    TaskSlot() = default;
    TaskSlot(const TaskSlot &) = delete;
    TaskSlot &operator=(const TaskSlot &) = delete;
    ~TaskSlot() { cancel(); }

    template <TaskMaker F>
    void start(F make)
    {
        cancel();
        auto run = std::make_shared<Run>();
        m_run = run;
        drive(std::move(run), std::move(make));
    }

    /// Asks the task to end. When this returns it has ended, unless it is in a shielded section or is the caller.
    void cancel()
    {
        if (const auto run = std::exchange(m_run, nullptr))
            run->stop.request_stop();
    }

    bool isRunning() const { return m_run && !m_run->done; }

private:
    struct Run {
        std::stop_source stop;
        bool done = false;
    };

    template <TaskMaker F>
    static Task<> drive(std::shared_ptr<Run> run, F make)
    {
        try {
            co_await make(run->stop.get_token());
        } catch (const std::exception &exception) {
            qCCritical(logTasks, "a task failed: %s", exception.what());
        }
        run->done = true;
    }

    std::shared_ptr<Run> m_run;
};

} // namespace ostrel
