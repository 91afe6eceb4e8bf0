#pragma once

#include "base/TaskSlot.h"

namespace ostrel {

/// Owns tasks that nobody waits for. All are cancelled when the scope goes. Make it the last member of its owner.
/// Main thread.
class TaskScope
{
public:
    TaskScope() = default;
    TaskScope(const TaskScope &) = delete;
    TaskScope &operator=(const TaskScope &) = delete;
    ~TaskScope() { cancelAll(); }

    template <TaskMaker F>
    void spawn(F make)
    {
        drive(m_stop, m_live, std::move(make));
    }

    /// Asks all tasks to end; later ones start afresh.
    void cancelAll() { std::exchange(m_stop, std::stop_source{}).request_stop(); }

    /// How many tasks have not ended yet.
    int liveCount() const { return *m_live; }

private:
    template <TaskMaker F>
    static Task<> drive(std::stop_source stop, std::shared_ptr<int> live, F make)
    {
        ++*live;
        try {
            co_await make(stop.get_token());
        } catch (const std::exception &exception) {
            qCCritical(logTasks, "a task failed: %s", exception.what());
        }
        --*live;
    }

    std::stop_source m_stop;
    std::shared_ptr<int> m_live = std::make_shared<int>(0);
};

} // namespace ostrel
