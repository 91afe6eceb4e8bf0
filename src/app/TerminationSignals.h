#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

/// How much time there is to come to an end.
enum class EndingPace {
    Patient, ///< the user asked for it, and may ask once more
    Prompt,  ///< the session or the system ends, and us with it before long
};

/// Brings SIGINT, SIGTERM and SIGHUP into the event loop, but for a SIGHUP that is ignored already. One object a
/// process; main thread.
///
/// The second SIGINT or SIGTERM means that the end is to come at once. A SIGHUP never does: the end of a session brings
/// one from the terminal, one from the shell, and a SIGTERM after them. SIGTERM and SIGHUP begin the `EndingLimit`.
class TerminationSignals
{
public:
    /// @param end   called from the event loop, and again when there is less time than it was told before
    /// @param abort the same, for each signal that means an end at once
    TerminationSignals(std::function<void(EndingPace)> end, std::function<void()> abort);
    TerminationSignals(const TerminationSignals &) = delete;
    TerminationSignals &operator=(const TerminationSignals &) = delete;
    ~TerminationSignals();

private:
    void drain();
    void take(int number);

    const std::function<void(EndingPace)> m_end;
    const std::function<void()> m_abort;
    bool m_wasAsked = false; ///< by SIGINT or SIGTERM
    std::optional<EndingPace> m_told;
    int m_readEnd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace ostrel
