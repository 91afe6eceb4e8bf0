#pragma once

#include "base/Error.h"
#include "base/Fault.h"
#include "base/Task.h"
#include "model/ModelState.h"
#include "model/ObserverControl.h"

#include <functional>
#include <memory>
#include <stop_token>

namespace ostrel {

class LocalObserverAPI;

template <class Answer>
using ObserverRequest = std::function<Task<Result<Answer>>(std::shared_ptr<LocalObserverAPI>, std::stop_token)>;

/// Sends a request that needs an observer: makes sure first that there is one, and gives a refusal the reason that the
/// observer tells. Main thread; stop it before the observer and the state go.
/// @return what was answered; why it could not be asked; Fault::Cancelled when stopped
template <class Answer>
Task<Result<Answer>> answerOfObserver(ObserverControl *observer, const ModelState *state,
                                      ObserverRequest<Answer> request, std::stop_token stop)
{
    const auto reachable = co_await observer->bringUp(stop);
    if (stop.stop_requested() || !reachable)
        co_return std::unexpected(reachable ? faultError(Fault::Cancelled) : reachable.error());
    const auto lastError = state->status() ? state->status()->lastError : std::nullopt;
    auto answer = co_await request(observer->api(), stop);
    if (stop.stop_requested())
        co_return std::unexpected(faultError(Fault::Cancelled));
    if (answer)
        co_return answer;
    co_return std::unexpected(co_await observer->withReason(answer.error(), lastError, std::move(stop)));
}

} // namespace ostrel
