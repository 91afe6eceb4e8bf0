#include "platform/secretservice/DeadlineThread.h"

#include <condition_variable>
#include <deque>
#include <mutex>

namespace ostrel {

namespace {

struct Call {
    std::function<void(std::stop_token)> job;
    std::stop_source givenUp;
    bool done = false;
};

} // namespace

/// Shared with the thread, which may be left behind.
struct DeadlineThread::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::shared_ptr<Call>> calls;
    bool overdue = false; ///< the job that runs was given up
    bool ending = false;
    bool ended = false;
};

DeadlineThread::DeadlineThread() : m_state(std::make_shared<State>()), m_thread([state = m_state] { work(state); }) {}

DeadlineThread::~DeadlineThread()
{
    constexpr std::chrono::seconds patience{1};
    std::unique_lock lock(m_state->mutex);
    m_state->ending = true;
    m_state->changed.notify_all();
    const bool ended = m_state->changed.wait_for(lock, patience, [this] { return m_state->ended; });
    lock.unlock();
    if (ended)
        m_thread.join();
    else
        m_thread.detach();
}

bool DeadlineThread::runWithin(std::chrono::milliseconds patience, Job job)
{
    const auto call = std::make_shared<Call>();
    call->job = std::move(job);
    std::unique_lock lock(m_state->mutex);
    if (m_state->overdue)
        return false;
    m_state->calls.push_back(call);
    m_state->changed.notify_all();
    if (m_state->changed.wait_for(lock, patience, [&call] { return call->done; }))
        return true;
    call->givenUp.request_stop();
    m_state->overdue = true;
    return false;
}

void DeadlineThread::work(const std::shared_ptr<State> &state)
{
    std::unique_lock lock(state->mutex);
    while (true) {
        state->changed.wait(lock, [&state] { return state->ending || !state->calls.empty(); });
        if (state->ending)
            break;
        const auto call = state->calls.front();
        state->calls.pop_front();
        lock.unlock();
        if (!call->givenUp.stop_requested())
            call->job(call->givenUp.get_token());
        call->job = {}; // what it holds is given back on this thread
        lock.lock();
        call->done = true;
        state->overdue = false;
        state->changed.notify_all();
    }
    state->ended = true;
    state->changed.notify_all();
}

} // namespace ostrel
