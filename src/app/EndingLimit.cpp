#include "app/EndingLimit.h"

#include "app/CommandResult.h"
#include "base/Fatal.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <climits>
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
volatile std::sig_atomic_t hasSuccessor = 0;
std::array<char, PATH_MAX> successor{};
std::chrono::milliseconds timeToEnd{};

void becomeSuccessor()
{
    // What is blocked while a handler runs would stay so in the other program.
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    std::array<char *, 2> arguments{successor.data(), nullptr};
    ::execv(successor.data(), arguments.data());
}

void endNow(int /*signal*/)
{
    if (hasSuccessor != 0)
        becomeSuccessor(); // returns where it can't be started
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

EndingLimit::EndingLimit(std::chrono::milliseconds time)
{
    timeToEnd = time;
    hasSuccessor = 0;
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
    setTimer(timeToEnd);
}

void EndingLimit::setSuccessor(const QString &program)
{
    hasSuccessor = 0; // while it is being written, and of one that is too long
    const QByteArray path = QFile::encodeName(program);
    if (path.isEmpty() || std::size_t(path.size()) >= successor.size())
        return;
    std::ranges::copy(path, successor.begin());
    successor[std::size_t(path.size())] = '\0';
    hasSuccessor = 1;
}

EndingLimit::Lifted::Lifted() noexcept : m_wasRunning(isThere != 0 && isRunning != 0)
{
    if (m_wasRunning)
        setTimer(std::chrono::milliseconds(0));
}

EndingLimit::Lifted::~Lifted()
{
    if (m_wasRunning && isThere != 0)
        setTimer(timeToEnd);
}

} // namespace ostrel
