#pragma once

#include "base/Mailbox.h"
#include "base/Op.h"
#include "base/Task.h"

#include <QThread>

#include <exception>
#include <future>
#include <memory>
#include <optional>
#include <type_traits>
#include <variant>

namespace ostrel {

/// One worker thread that runs what it is given, one after the other, in order. State that only its jobs touch needs
/// no lock. Create and destroy it on the main thread; destruction finishes every job that was posted before it.
class SerialQueue
{
public:
    /// @param name shown by debuggers and in /proc
    explicit SerialQueue(const QString &name);
    SerialQueue(const SerialQueue &) = delete;
    SerialQueue &operator=(const SerialQueue &) = delete;
    ~SerialQueue();

    /// Whether the caller runs on this queue.
    bool isCurrent() const { return QThread::currentThread() == &m_thread; }

    /// Hands a job over and returns. Any thread.
    void post(std::function<void()> job) { m_inbox->post(std::move(job)); }

    /// Runs a job and waits for it; on the queue itself it runs inline. What it throws is thrown here.
    /// Never from the main thread of the program: use `run`.
    template <class F>
    std::invoke_result_t<F> sync(F job)
    {
        if (isCurrent())
            return job();
        std::packaged_task<std::invoke_result_t<F>()> task(std::move(job));
        auto answer = task.get_future();
        post([&task] { task(); });
        return answer.get();
    }

    /// Runs a job on the queue while the calling coroutine, on the main thread, waits without blocking it. Captures
    /// are destroyed on the queue. A stop ends the wait, not the job: it runs all the same.
    /// @return the job's answer (std::monostate for void), or nothing when stopped
    template <class F, class R = std::invoke_result_t<F>,
              class V = std::conditional_t<std::is_void_v<R>, std::monostate, R>>
    Task<std::optional<V>> run(std::stop_token stop, F job)
    {
        struct Outcome {
            std::optional<V> value;
            std::exception_ptr failure;
        };
        auto owned = std::make_shared<F>(std::move(job));
        auto outcome = co_await Op<std::shared_ptr<Outcome>>(std::move(stop), [this, &owned](auto resolve) {
            post([home = m_home, owned = std::move(owned), resolve]() mutable {
                auto result = std::make_shared<Outcome>();
                try {
                    if constexpr (std::is_void_v<R>) {
                        (*owned)();
                        result->value.emplace();
                    } else {
                        result->value.emplace((*owned)());
                    }
                } catch (...) {
                    result->failure = std::current_exception();
                }
                owned.reset();
                home->post([result = std::move(result), resolve] { resolve(result); });
            });
            return std::function<void()>();
        });
        if (!outcome)
            co_return std::nullopt;
        if ((*outcome)->failure)
            std::rethrow_exception((*outcome)->failure);
        co_return std::move((*outcome)->value);
    }

private:
    /// Lives on the main thread and brings answers back. Shared with jobs on their way, which may end last.
    std::shared_ptr<Mailbox> m_home;
    std::unique_ptr<Mailbox> m_inbox;
    QThread m_thread;
};

} // namespace ostrel
