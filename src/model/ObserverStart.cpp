#include "model/ObserverStart.h"

#include "base/Fault.h"
#include "model/ObserverControl.h"

#include <utility>

namespace ostrel {

namespace {

/// Whether a start whose answer never came, or made no sense, may all the same have reached the observer.
bool mayHaveBeenDone(const Error &error)
{
    return !isFault(error, Fault::ConnectionRefused) && !isFault(error, Fault::PortTaken) &&
           !isFault(error, Fault::BadUrl) && !isFault(error, Fault::BadServerResponse);
}

} // namespace

Task<std::expected<void, StartFailure>> ObserverStart::run(std::stop_token life, std::stop_token stop)
{
    const auto isUp = co_await bringUp(stop);
    if (!isUp || stop.stop_requested())
        co_return isUp;
    co_return co_await haveItRecord(std::move(life), std::move(stop));
}

Task<std::expected<void, StartFailure>> ObserverStart::bringUp(std::stop_token stop)
{
    const auto helper = m_observer.startHelper();
    // Without a child, the only observer that can answer is one that somebody else runs: it is there or it isn't.
    const int attempts = helper ? ObserverControl::reachableAttempts : 1;
    const auto reachable = co_await m_observer.waitUntilReachable(attempts, stop);
    if (reachable || stop.stop_requested())
        co_return {};
    const Error &error = helper ? reachable.error() : helper.error();
    co_return std::unexpected(StartFailure{.message = error.localizedDescription});
}

Task<std::expected<void, StartFailure>> ObserverStart::haveItRecord(std::stop_token life, std::stop_token stop)
{
    const auto answer = co_await m_observer.startRecording(std::move(life));
    if (stop.stop_requested())
        co_return {};
    if (!answer) {
        // The status may hold the reason, and whoever watches it shows it; the failure itself has only its own words.
        if (isFault(answer.error(), Fault::BadServerResponse))
            co_await m_observer.refreshStatus(stop);
        if (stop.stop_requested())
            co_return {};
        co_return std::unexpected(StartFailure{.message = answer.error().localizedDescription,
                                               .observerMayRun = mayHaveBeenDone(answer.error())});
    }
    if (!answer->running) {
        const QString reason = answer->lastError.value_or(QString());
        const QString generic = faultError(Fault::BadServerResponse).localizedDescription;
        co_return std::unexpected(StartFailure{.message = reason.isEmpty() ? generic : reason});
    }
    co_return {};
}

} // namespace ostrel
