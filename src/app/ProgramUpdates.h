#pragma once

#include "base/SerialQueue.h"
#include "update/InstalledProgram.h"
#include "update/UpdaterCoordinator.h"

#include <functional>

namespace ostrel {

class AppModel;
class Clock;
class UserDefaults;

/// The updates of a program with a model: looked for once a day and when the user asks. Before one is installed the
/// model ends the recording, and leaves word for the new version to go on with it. Does nothing where the bundle names
/// no feed. Main thread.
class ProgramUpdates
{
public:
    /// Starts looking. The first three outlive this object.
    /// @param relaunch ends this program and starts another one, by its path
    ProgramUpdates(AppModel &model, Clock &clock, UserDefaults &defaults, InstalledProgram program,
                   std::function<void(const QString &path)> relaunch);

    /// What a button that checks for updates does; empty where there are none, and so no such button.
    std::function<void()> checkForUpdates() const { return m_coordinator.checkForUpdates(); }
    /// What the search has come to, for a screen to show; nothing where there are no updates.
    UpdateController *controller() const { return m_coordinator.controller(); }

private:
    SerialQueue m_worker{QStringLiteral("com.tamsk.ostrel.update")};
    UpdaterCoordinator m_coordinator;
};

} // namespace ostrel
