#pragma once

#include <QObject>
#include <functional>
#include <memory>

namespace ostrel {

class SystemHold;
class WorkspaceEvents;

/// Tells when the system goes to sleep and when it wakes. Main thread.
class SleepWakeMonitor
{
public:
    /// @param notificationCenter outlives this object
    explicit SleepWakeMonitor(WorkspaceEvents &notificationCenter);
    SleepWakeMonitor(const SleepWakeMonitor &) = delete;
    SleepWakeMonitor &operator=(const SleepWakeMonitor &) = delete;

    std::function<void()> onWillSleep;
    std::function<void()> onDidWake;

    /// What holds the sleep up that `onWillSleep` is telling of: whoever needs time takes it then, and lets go of it
    /// when done. The system sleeps as soon as nobody has it. Null at other times.
    std::shared_ptr<SystemHold> takeHold();

private:
    std::shared_ptr<SystemHold> m_hold;
    QObject m_observers; ///< what the registrations hang on
};

} // namespace ostrel
