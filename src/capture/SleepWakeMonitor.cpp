#include "capture/SleepWakeMonitor.h"

#include "capture/WorkspaceEvents.h"

#include <utility>

namespace ostrel {

SleepWakeMonitor::SleepWakeMonitor(WorkspaceEvents &notificationCenter)
{
    QObject::connect(&notificationCenter, &WorkspaceEvents::willSleep, &m_observers,
                     [this](std::shared_ptr<SystemHold> hold) {
                         m_hold = std::move(hold);
                         if (onWillSleep)
                             onWillSleep();
                         m_hold.reset();
                     });
    QObject::connect(&notificationCenter, &WorkspaceEvents::didWake, &m_observers, [this] {
        if (onDidWake)
            onDidWake();
    });
}

std::shared_ptr<SystemHold> SleepWakeMonitor::takeHold()
{
    return std::exchange(m_hold, nullptr);
}

} // namespace ostrel
