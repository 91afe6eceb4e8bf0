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
    struct Limits {
        std::chrono::milliseconds hurriedWait; ///< where somebody wants the end
        std::chrono::milliseconds longWait;    ///< after which somebody should hear of it
    };
    struct Outlets {
        std::function<void()> lost;   ///< a hurried wait is over its limit; called before whoever waits is resumed
        std::function<void()> isLong; ///< a wait has become a long one; it goes on
    };

    /// @param clock outlives this object
    QueuePatience(Clock &clock, Limits limits, Outlets outlets);
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
    /// Whether a wait is under way that has become a long one.
    bool waitsLong() const { return m_waitsLong; }

    /// Ends when patience is lost, or all waits are ended: for others who wait for the same queues.
    std::stop_token token() const { return m_waits.get_token(); }
    void endAllWaits() { m_waits.request_stop(); }

    /// Whether patience with this queue was lost, and it has not answered since.
    bool hangs(const SerialQueue &queue) const { return &queue == m_hung && !*m_answersAgain; }

private:
    using Withdraw = std::function<void()>;

    void beginWait(SerialQueue *queue);
    void endWait();
    void limit();
    static void withdraw(Withdraw &timer);
    void noteLongWait();
    void lose();

    Clock &m_clock;
    const Limits m_limits;
    const Outlets m_outlets;
    bool m_isHurried = false;
    bool m_waitsLong = false;
    SerialQueue *m_awaited = nullptr;
    // Of the wait under way, where it has them.
    Withdraw m_withdrawLimit;
    Withdraw m_withdrawLongWait;
    std::stop_source m_waits;      ///< another one after patience was lost
    SerialQueue *m_hung = nullptr; ///< with which it was lost last
    std::shared_ptr<std::atomic<bool>> m_answersAgain = std::make_shared<std::atomic<bool>>(true);
};

} // namespace ostrel
