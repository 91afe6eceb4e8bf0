#pragma once

#include "base/Task.h"
#include "base/TaskSlot.h"

#include <QCoreApplication>
#include <QEvent>
#include <QEventLoop>
#include <QTimer>

#include <chrono>
#include <functional>
#include <optional>
#include <stop_token>

namespace ostrel {

/// Runs the main thread's events until the condition holds. For conditions that another process or the kernel brings
/// about; the time limit is there for a test that would otherwise never end.
/// @return whether the condition holds
inline bool pumpUntil(const std::function<bool()> &condition, std::chrono::seconds limit = std::chrono::seconds(20))
{
    bool expired = false;
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &guard, [&expired] { expired = true; });
    guard.start(limit);
    QTimer tick; // wakes the loop for conditions that no event announces, such as a file of another process
    tick.start(std::chrono::milliseconds(2));
    while (!condition() && !expired) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // outside of exec() nobody else does
    }
    return condition();
}

/// Runs one task to its end on the main thread.
/// @param make makes the task from a stop token
/// @return its answer; nothing when it has not ended within the time limit
template <class T>
std::optional<T> runTask(const std::function<Task<T>(std::stop_token)> &make)
{
    std::optional<T> answer;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> { answer = co_await make(stop); });
    pumpUntil([&answer] { return answer.has_value(); });
    return answer;
}

} // namespace ostrel
