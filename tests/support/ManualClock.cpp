#include "support/ManualClock.h"

#include "base/SerialQueue.h"

#include <QCoreApplication>

namespace ostrel {

ManualClock::ManualClock(std::function<void()> settle) : m_settle(std::move(settle)) {}

std::function<void()> ManualClock::schedule(std::chrono::milliseconds delay, std::function<void()> callback)
{
    const Key key(m_elapsedMs + delay.count(), ++m_sequence);
    m_timers->emplace(key, std::move(callback));
    return [timers = std::weak_ptr(m_timers), key] {
        if (const auto live = timers.lock())
            live->erase(key);
    };
}

void ManualClock::advance(std::chrono::milliseconds duration)
{
    const qint64 target = m_elapsedMs + duration.count();
    m_settle();
    while (!m_timers->empty() && m_timers->begin()->first.first <= target) {
        auto timer = m_timers->extract(m_timers->begin());
        m_nowMs += timer.key().first - m_elapsedMs;
        m_elapsedMs = timer.key().first;
        timer.mapped()();
        m_settle();
    }
    m_nowMs += target - m_elapsedMs;
    m_elapsedMs = target;
}

void settleEvents(std::initializer_list<SerialQueue *> queues)
{
    // A job may post to the main thread and the other way round; chains in the program are shorter than this.
    for (int round = 0; round < 8; ++round) {
        for (SerialQueue *queue : queues)
            queue->sync([] {});
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

} // namespace ostrel
