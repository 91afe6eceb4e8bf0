#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <functional>
#include <memory>

namespace ostrel {

/// Brings SIGINT, SIGTERM and SIGHUP into the event loop, but for a SIGHUP that is ignored already. One object a
/// process; main thread.
class TerminationSignals
{
public:
    /// @param firstSignal called from the event loop for the first signal
    /// @param laterSignal the same for each further one
    TerminationSignals(std::function<void()> firstSignal, std::function<void()> laterSignal);
    TerminationSignals(const TerminationSignals &) = delete;
    TerminationSignals &operator=(const TerminationSignals &) = delete;
    ~TerminationSignals();

private:
    void drain();

    std::function<void()> m_firstSignal;
    std::function<void()> m_laterSignal;
    bool m_signalled = false;
    int m_readEnd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace ostrel
