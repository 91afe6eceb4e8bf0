#pragma once

#ifndef Q_MOC_RUN // moc 6.4 can't parse <concepts>, which comes with it
#include <coroutine>
#endif
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <utility>

namespace ostrel {

/// The only leaf awaitable of the program: one operation that is started, and later answered or stopped.
///
/// Awaiting gives the answer, or nothing when it was stopped. A stop resumes the coroutine inline, within
/// `request_stop()`: a cancelled task has unwound before the call that cancels it returns. Answers that come after
/// the stop, twice, or after the awaiting coroutine is gone are ignored.
///
/// Everything happens on one thread: starting, answering and stopping. Answers from elsewhere come through a Mailbox.
template <class T>
class [[nodiscard]] Op
{
    struct State {
        std::coroutine_handle<> waiting;
        std::optional<T> answer;
        bool settled = false;

        void settle()
        {
            settled = true;
            if (const auto handle = std::exchange(waiting, {}))
                handle.resume();
        }
    };

public:
    /// Answers the operation. May be copied and kept for as long as one likes.
    class Resolve
    {
    public:
        void operator()(T answer) const
        {
            if (m_state->settled)
                return;
            m_state->answer = std::move(answer);
            // The coroutine that is resumed here may destroy whoever holds this object.
            const std::shared_ptr<State> keep = m_state; // NOLINT(performance-unnecessary-copy-initialization)
            keep->settle();
        }

    private:
        friend class Op;
        explicit Resolve(std::shared_ptr<State> state) : m_state(std::move(state)) {}
        std::shared_ptr<State> m_state;
    };

    /// Withdraws an operation that was started; may be empty where nothing needs withdrawing.
    using Cancel = std::function<void()>;
    /// Begins the operation. It may answer at once.
    using Start = std::function<Cancel(Resolve)>;

    Op(std::stop_token stop, Start start) : m_stop(std::move(stop)), m_start(std::move(start)) {}
    Op(const Op &) = delete;
    Op &operator=(const Op &) = delete;

    ~Op()
    {
        m_onStop.reset();
        m_state->settled = true;
        m_state->waiting = {};
    }

    bool await_ready()
    {
        if (m_stop.stop_requested())
            return true;
        m_cancel = m_start(Resolve(m_state));
        return m_state->settled;
    }

    void await_suspend(std::coroutine_handle<> handle)
    {
        m_state->waiting = handle;
        // Local copies: the coroutine resumed by the callback destroys this object.
        m_onStop = std::make_unique<StopCallback>(m_stop, [state = m_state, cancel = m_cancel] {
            if (state->settled)
                return;
            state->settled = true;
            const auto keep = state;      // NOLINT(performance-unnecessary-copy-initialization)
            const auto withdraw = cancel; // NOLINT(performance-unnecessary-copy-initialization)
            if (withdraw)
                withdraw();
            keep->settle();
        });
    }

    std::optional<T> await_resume()
    {
        m_onStop.reset();
        return std::move(m_state->answer);
    }

private:
    using StopCallback = std::stop_callback<std::function<void()>>;

    std::shared_ptr<State> m_state = std::make_shared<State>();
    std::stop_token m_stop;
    Start m_start;
    Cancel m_cancel;
    std::unique_ptr<StopCallback> m_onStop;
};

} // namespace ostrel
