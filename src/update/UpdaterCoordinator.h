#pragma once

#include "base/TaskScope.h"
#include "update/BundleInfo.h"
#include "update/UpdateController.h"

#include <QObject>

#include <functional>
#include <memory>

namespace ostrel {

/// Decides whether this build has updates at all, and gives the program the chance to prepare before one replaces it.
/// Main thread.
class UpdaterCoordinator final : public QObject, public UpdaterDelegate
{
public:
    using MakeController = std::function<std::unique_ptr<UpdateController>(UpdaterDelegate &delegate)>;
    using Prepare = std::function<Task<>(std::stop_token stop)>;

    /// @param make makes the framework, which is started at once; called only where the bundle names a feed
    UpdaterCoordinator(BundleInfo bundle, MakeController make);
    /// Ends a preparation under way, which lets the installation go on.
    ~UpdaterCoordinator() override;

    /// Awaited before an update is installed. Where it does not end, the installation waits for it.
    Prepare prepareForUpdateRelaunch;

    /// Makes and starts the framework if the bundle names a feed; does nothing otherwise.
    void start();

    /// Nothing when updates are off.
    UpdateController *controller() const { return m_controller.get(); }
    /// What a button that checks for updates does; empty when updates are off and there is to be no such button. It
    /// does nothing when this object is gone.
    std::function<void()> checkForUpdates() const;

    bool willInstallUpdateOnQuit(const Version &version, ImmediateInstallationBlock install) override;

private:
    void prepareAndInstall(ImmediateInstallationBlock install);

    const BundleInfo m_bundle;
    const MakeController m_make;
    std::unique_ptr<UpdateController> m_controller;
    TaskScope m_tasks;
};

} // namespace ostrel
