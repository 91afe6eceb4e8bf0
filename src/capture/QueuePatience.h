#pragma once

#include "base/SerialQueue.h"
#include "base/Task.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>
#include <variant>

namespace ostrel {

class Clock;

/// Waits for queues that may hang with the window system: for as long as it takes, until somebody wants the end; from
/// then on no longer than the limit. One wait at a time; main thread.
class QueuePatience
{
public:
    /// @param clock  outlives this object
    /// @param onLost called when a wait has been longer than the limit, before whoever waits is resumed
    QueuePatience(Clock &clock, std::chrono::milliseconds limit, std::function<void()> onLost);
    QueuePatience(const QueuePatience &) = delete;
    QueuePatience &operator=(const QueuePatience &) = delete;
    ~QueuePatience();

    /// Runs a job on a queue, which outlives the wait. A wait that ends before it does not end the job: it runs when
    /// the queue comes to it.
    /// @return nothing when patience was lost, or all waits were ended
    template <class F, class R = std::invoke_result_t<F>,
              class V = std::conditional_t<std::is_void_v<R>, std::monostate, R>>
    Task<std::optional<V>> answerOf(SerialQueue *queue, F job)
    {
        beginWait(queue);
        auto answer = co_await queue->run(token(), std::move(job));
        endWait();
        co_return answer;
    }

    /// Whether somebody wants the end: limits the wait under way, and those to come.
    void setHurried(bool isHurried);

    /// Ends when patience is lost, or all waits are ended: for others who wait for the same queues.
    std::stop_token token() const { return m_waits.get_token(); }
    void endAllWaits() { m_waits.request_stop(); }

    /// Whether patience with this queue was lost, and it has not answered since.
    bool hangs(const SerialQueue &queue) const { return &queue == m_hung && !*m_answersAgain; }

private:
    void beginWait(SerialQueue *queue);
    void endWait();
    void limit();
    void withdrawLimit();
    void lose();

    Clock &m_clock;
    const std::chrono::milliseconds m_limit;
    const std::function<void()> m_onLost;
    bool m_isHurried = false;
    SerialQueue *m_awaited = nullptr;
    std::function<void()> m_withdrawLimit; ///< of the wait under way, where it has one
    std::stop_source m_waits;              ///< another one after patience was lost
    SerialQueue *m_hung = nullptr;         ///< with which it was lost last
    std::shared_ptr<std::atomic<bool>> m_answersAgain = std::make_shared<std::atomic<bool>>(true);
};

} // namespace ostrel
