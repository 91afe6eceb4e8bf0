#pragma once

#include "app/Platform.h"
#include "app/RecorderLock.h"
#include "model/ObserverControl.h"
#include "observer/ObserverSettings.h"

#include <QString>

#include <expected>
#include <optional>

namespace ostrel {

/// What a command needs to talk to the observer: the one that runs already, or else one of its own.
struct FoundObserver {
    ObserverSettings settings;
    QString localAPIToken;
    std::optional<QString> repoRoot;
    ObserverControl::Owner owner = ObserverControl::Owner::AnotherProgram;
    std::optional<RecorderLock> lock; ///< for an observer of our own: until it is let go no recording can begin
};

/// Looks for the observer; starts none. Main thread, outside of an event loop.
/// @return why there can be none, in words for the user
std::expected<FoundObserver, QString> findObserver(const Platform &platform);

/// What an observer does beside a command: there is neither capture nor polling.
ObserverControl::Hooks hooksOfACommand(ModelState &state);

} // namespace ostrel
