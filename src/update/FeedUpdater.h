#pragma once

#include "base/TaskSlot.h"
#include "update/FeedCheck.h"
#include "update/HttpClient.h"
#include "update/UpdateController.h"
#include "update/UpdateInstaller.h"
#include "update/UpdateMemory.h"
#include "update/UpdateSchedule.h"

#include <optional>

namespace ostrel {

class SerialQueue;
class UserDefaults;

/// The update framework of Linux: a signed feed, looked at once a day and when asked. What is newer is downloaded,
/// verified and put beside the running version; where the installation is not ours to change it is only told of. Main
/// thread, which it never blocks.
class FeedUpdater final : public UpdateController
{
    Q_OBJECT

public:
    struct Dependencies {
        Clock &clock;
        UserDefaults &defaults;
        SerialQueue &worker; ///< for what blocks on the disk
        InstalledProgram program;
        /// Ends this program and starts another one, by its path. Called once, on the main thread.
        std::function<void(const QString &path)> relaunch;
    };

    /// All outlive this object.
    FeedUpdater(Dependencies dependencies, UpdaterDelegate &delegate);
    ~FeedUpdater() override;

    void startUpdater() override;
    void checkForUpdates() override;
    const UpdateState &state() const override { return m_state; }
    Task<> installOnQuit(std::stop_token stop) override;

private:
    enum class Origin { Schedule, User };

    void check(Origin origin);
    Task<> run(Origin origin, std::stop_token stop);
    Task<> stage(Release release, std::stop_token stop);
    void offer(Version version);
    Task<> installAndRelaunch(std::stop_token stop);
    bool isHeldBack(const Version &version) const;
    void setPhase(UpdateState::Phase phase);
    void fail(const Error &error);

    const Dependencies m_d;
    UpdaterDelegate &m_delegate;
    UpdateState m_state;
    std::optional<Version> m_ready; ///< staged, and not installed yet
    bool m_readyWasHeldBack = false;
    HttpClient m_http;
    UpdateMemory m_memory;
    UpdateSchedule m_schedule;
    FeedCheck m_check;
    std::optional<UpdateInstaller> m_installer;
    TaskSlot m_running;
    TaskSlot m_installing;
};

} // namespace ostrel
