#pragma once

#include "base/Task.h"
#include "update/UpdateState.h"
#include "update/Version.h"

#include <QObject>

#include <functional>
#include <stop_token>

namespace ostrel {

/// Is asked by an update framework before it replaces the program. Main thread.
class UpdaterDelegate
{
public:
    /// Quits the program, installs the update and starts it. Main thread; may be called long after it was handed out,
    /// also when there is no framework any more, and twice.
    using ImmediateInstallationBlock = std::function<void()>;

    virtual ~UpdaterDelegate() = default;

    /// An update is ready and will be installed when the program quits.
    /// @return true: the delegate decides when, and calls the block; false: at the next quit, whenever that is
    virtual bool willInstallUpdateOnQuit(const Version &version, ImmediateInstallationBlock install) = 0;
};

/// An update framework: looks for newer versions by itself, and when asked. Main thread.
class UpdateController : public QObject
{
    Q_OBJECT

public:
    ~UpdateController() override;

    /// Begins to look by itself. Called once.
    virtual void startUpdater() = 0;
    /// Looks now, because the user has asked for it. While something is under way already, that goes on.
    virtual void checkForUpdates() = 0;
    virtual const UpdateState &state() const = 0;
    /// Installs what is ready and has not been installed; to be awaited by a program that quits without having been
    /// asked by an update to do so.
    virtual Task<> installOnQuit(std::stop_token stop) = 0;

Q_SIGNALS:
    void stateChanged();
};

} // namespace ostrel
