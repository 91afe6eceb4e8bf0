#include "app/FoundObserver.h"

#include "app/ObserverQuestion.h"
#include "model/LocalApiToken.h"
#include "model/ModelState.h"
#include "observer/RepoLocator.h"
#include "observer/SecretStore.h"
#include "observer/SettingsStore.h"

#include <utility>

namespace ostrel {

std::expected<FoundObserver, QString> findObserver(const Platform &platform)
{
    FoundObserver found{.settings = SettingsStore(platform.secrets).load(),
                        .localAPIToken = localApiTokenOrFallback(platform.secrets),
                        .repoRoot = RepoLocator::forThisProgram().resolveRepoRoot(),
                        .lock = std::nullopt};
    const ObserverAnswer answer = askObserver(platform.secrets, found.settings);
    if (answer.reach == ObserverReach::NotRunning) {
        auto lock = RecorderLock::acquire(RecorderLock::Purpose::Command);
        // Somebody else is about to have one: that one is waited for.
        if (!lock && !RecorderLock::isHeldByAnother(lock.error()))
            return std::unexpected(lock.error().localizedDescription);
        if (lock) {
            found.lock.emplace(*std::move(lock));
            found.owner = ObserverControl::Owner::Us;
        }
    } else if (answer.reach != ObserverReach::Answers) {
        return std::unexpected(inOneLine(adviceOn(answer)));
    }
    return found;
}

ObserverControl::Hooks hooksOfACommand(ModelState &state)
{
    return {.applyObserverStatus = [&state](const ObserverStatus &status) { state.setStatus(status); },
            .stopCapture = [] {},
            .startPolling = [] {}};
}

} // namespace ostrel
