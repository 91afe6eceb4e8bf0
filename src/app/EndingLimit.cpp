#include "app/EndingLimit.h"

#include "app/CommandResult.h"
#include "base/Fatal.h"

#include <csignal>
#include <ctime>
#include <string_view>
#include <unistd.h>

namespace ostrel {

namespace {

// The handlers find no object.
timer_t timer{};
volatile std::sig_atomic_t isThere = 0;
volatile std::sig_atomic_t isRunning = 0;

void endNow(int /*signal*/)
{
    static constexpr std::string_view words =
        "ostrel: not everything came to its end in time; frames not yet sent to the observer may be lost\n";
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, words.data(), words.size());
    ::_exit(ExitFailed);
}

void setTimer(std::chrono::milliseconds time) noexcept
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    itimerspec spec{};
    spec.it_value.tv_sec = seconds.count();
    spec.it_value.tv_nsec = std::chrono::nanoseconds(time - seconds).count();
    ::timer_settime(timer, 0, &spec, nullptr);
}

} // namespace

EndingLimit::EndingLimit()
{
    struct sigaction action = {};
    action.sa_handler = endNow;
    ::sigaction(SIGALRM, &action, nullptr);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    if (::timer_create(CLOCK_MONOTONIC, &event, &timer) != 0)
        fatal("no timer could be made");
    isRunning = 0;
    isThere = 1;
}

EndingLimit::~EndingLimit()
{
    isThere = 0;
    ::timer_delete(timer);
    std::signal(SIGALRM, SIG_DFL);
}

void EndingLimit::begin() noexcept
{
    if (isThere == 0 || isRunning != 0)
        return;
    isRunning = 1;
    setTimer(limit);
}

EndingLimit::Lifted::Lifted() noexcept : m_wasRunning(isThere != 0 && isRunning != 0)
{
    if (m_wasRunning)
        setTimer(std::chrono::milliseconds(0));
}

EndingLimit::Lifted::~Lifted()
{
    if (m_wasRunning && isThere != 0)
        setTimer(limit);
}

} // namespace ostrel
