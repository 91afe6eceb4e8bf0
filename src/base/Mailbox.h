#pragma once

#include <QObject>

#include <deque>
#include <functional>
#include <mutex>

namespace ostrel {

/// Runs jobs in order on the thread it lives on, which needs an event loop. Jobs travel through a mutex that we own,
/// and Qt carries only the wake-up: so a race detector, which can't look into Qt, sees that they are handed over.
/// Jobs that are still there at destruction are dropped.
class Mailbox : public QObject
{
public:
    using Job = std::function<void()>;

    /// Any thread.
    void post(Job job);

protected:
    bool event(QEvent *event) override;

private:
    std::mutex m_mutex;
    std::deque<Job> m_jobs;
};

} // namespace ostrel
