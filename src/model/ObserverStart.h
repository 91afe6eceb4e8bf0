#pragma once

#include "base/Task.h"

#include <QString>
#include <expected>
#include <stop_token>

namespace ostrel {

class ObserverControl;

/// Why a start of a recording came to nothing.
struct StartFailure {
    QString message;
    bool observerMayRun = false; ///< it may have been told to record, and does so by now
};

/// The observer's side of a start: brings it up, and has it record. Main thread.
class ObserverStart
{
public:
    /// @param observer outlives this object
    explicit ObserverStart(ObserverControl &observer) : m_observer(observer) {}

    /// Once stopped, what it returns says nothing.
    /// @param life ends the request to record, which `stop` does not: it may have been carried out all the same
    /// @param stop ends the waiting for the observer
    Task<std::expected<void, StartFailure>> run(std::stop_token life, std::stop_token stop);

private:
    Task<std::expected<void, StartFailure>> bringUp(std::stop_token stop);
    Task<std::expected<void, StartFailure>> haveItRecord(std::stop_token life, std::stop_token stop);

    ObserverControl &m_observer;
};

} // namespace ostrel
