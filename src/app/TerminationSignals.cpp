#include "app/TerminationSignals.h"

#include "app/EndingLimit.h"
#include "base/Fatal.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace ostrel {

namespace {

constexpr int handledSignals[] = {SIGINT, SIGTERM, SIGHUP};

/// A handler may do next to nothing; it writes the signal's number, and the event loop does the rest.
int writeEnd = -1;

void onSignal(int number)
{
    if (number != SIGINT)
        EndingLimit::begin(); // not by the event loop, which may be what hangs
    const auto byte = static_cast<unsigned char>(number);
    // A full pipe means that a signal is waiting to be handled already.
    [[maybe_unused]] const ssize_t written = ::write(writeEnd, &byte, 1);
}

bool isIgnored(int number)
{
    struct sigaction action = {};
    return ::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

TerminationSignals::TerminationSignals(std::function<void(EndingPace)> end, std::function<void()> abort)
    : m_end(std::move(end)), m_abort(std::move(abort))
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        fatal("no pipe for signals could be made");
    m_readEnd = ends[0];
    writeEnd = ends[1];
    m_notifier = std::make_unique<QSocketNotifier>(m_readEnd, QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(), [this] { drain(); });

    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : handledSignals) {
        // Whoever started us under nohup wants us to outlive the terminal.
        if (number != SIGHUP || !isIgnored(number))
            ::sigaction(number, &action, nullptr);
    }
}

TerminationSignals::~TerminationSignals()
{
    for (const int number : handledSignals) {
        if (!isIgnored(number))
            std::signal(number, SIG_DFL);
    }
    m_notifier.reset();
    ::close(m_readEnd);
    ::close(std::exchange(writeEnd, -1));
}

void TerminationSignals::drain()
{
    unsigned char number = 0;
    while (::read(m_readEnd, &number, 1) == 1)
        take(number);
}

void TerminationSignals::take(int number)
{
    if (number != SIGHUP && std::exchange(m_wasAsked, true))
        return m_abort();
    const EndingPace pace = number == SIGINT ? EndingPace::Patient : EndingPace::Prompt;
    if (m_told && *m_told >= pace)
        return;
    m_told = pace;
    m_end(pace);
}

} // namespace ostrel
