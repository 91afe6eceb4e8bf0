#pragma once

#include "base/Clock.h"

#include <atomic>
#include <initializer_list>
#include <map>
#include <memory>
#include <utility>

namespace ostrel {

/// Time that passes only when told to. Every timer fires at its exact moment, in order, and what it sets off has
/// settled before the next one.
class ManualClock final : public Clock
{
public:
    /// @param settle lets everything run that can run without time passing; see `settleEvents`
    explicit ManualClock(std::function<void()> settle);

    qint64 nowMs() const override { return m_nowMs; }
    std::function<void()> schedule(std::chrono::milliseconds delay, std::function<void()> callback) override;

    void advance(std::chrono::milliseconds duration);
    /// Moves the wall clock alone, as a user who sets it does; timers don't notice.
    void setNowMs(qint64 nowMs) { m_nowMs = nowMs; }
    int pendingTimerCount() const { return int(m_timers->size()); }

private:
    using Key = std::pair<qint64, quint64>; // monotonic due time, order of scheduling
    using Timers = std::map<Key, std::function<void()>>;

    std::function<void()> m_settle;
    std::shared_ptr<Timers> m_timers = std::make_shared<Timers>();
    std::atomic<qint64> m_nowMs = 1'700'000'000'000;
    qint64 m_elapsedMs = 0;
    quint64 m_sequence = 0;
};

/// Runs the main thread's events, deferred deletions included, and the queues' jobs, until both are quiet.
void settleEvents(std::initializer_list<class SerialQueue *> queues = {});

} // namespace ostrel
