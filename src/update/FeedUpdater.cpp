#include "update/FeedUpdater.h"

#include "base/Clock.h"
#include "base/Fault.h"
#include "base/Log.h"
#include "update/UpdateFault.h"

#include <QPointer>

namespace ostrel {

using Phase = UpdateState::Phase;

FeedUpdater::FeedUpdater(Dependencies dependencies, UpdaterDelegate &delegate)
    : m_d(std::move(dependencies)), m_delegate(delegate), m_http(m_d.clock), m_memory(m_d.defaults),
      m_schedule(m_d.clock, m_memory), m_check(m_http, m_memory, m_d.clock)
{
    if (m_d.program.installation)
        m_installer.emplace(*m_d.program.installation, m_http, m_d.clock, m_d.worker);
    m_state.installsItself = m_d.program.installation.has_value();
}

FeedUpdater::~FeedUpdater() = default;

void FeedUpdater::startUpdater()
{
    m_schedule.start([this] { check(Origin::Schedule); });
}

void FeedUpdater::checkForUpdates()
{
    check(Origin::User);
}

void FeedUpdater::check(Origin origin)
{
    if (m_running.isRunning() || m_installing.isRunning() || m_ready)
        return;
    // The slot keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    m_running.start([this, origin](std::stop_token stop) { return run(origin, std::move(stop)); });
}

Task<> FeedUpdater::run(Origin origin, std::stop_token stop)
{
    m_state.version.clear();
    m_state.notes.clear();
    setPhase(Phase::Checking);
    const auto answer = co_await m_check.ask(m_d.program, stop);
    if (stop.stop_requested())
        co_return;
    if (!answer)
        co_return fail(answer.error());
    const std::optional<Release> &release = answer->newer;
    if (release) {
        m_state.version = release->version.text();
        m_state.notes = release->notes;
    }
    if (release && m_installer && (origin == Origin::User || !isHeldBack(release->version)))
        co_return co_await stage(*release, stop);
    m_schedule.noteCheck();
    setPhase(release ? Phase::Found : Phase::UpToDate);
}

/// A version that did not work out is not forced upon anybody day after day; who asks for it gets it.
bool FeedUpdater::isHeldBack(const Version &version) const
{
    return m_d.program.installation->isRejected(version) || m_memory.failedVersion() == version;
}

Task<> FeedUpdater::stage(Release release, std::stop_token stop)
{
    m_state.totalBytes = release.size;
    const auto progress = [this](UpdateInstaller::Phase phase, qint64 received) {
        m_state.receivedBytes = received;
        setPhase(phase == UpdateInstaller::Phase::Downloading ? Phase::Downloading : Phase::Unpacking);
    };
    // The check has seen that it is one.
    const UpdateKey key = *UpdateKey::parse(*m_d.program.bundle.publicKey);
    const auto staged = co_await m_installer->stage(release, key, progress, stop);
    if (stop.stop_requested())
        co_return;
    // A broken connection may be whole again in an hour, anything else hardly before tomorrow.
    if (staged || !isUpdateFault(staged.error(), UpdateFault::DownloadInterrupted))
        m_schedule.noteCheck();
    if (!staged)
        co_return fail(staged.error());
    offer(release.version);
}

void FeedUpdater::offer(Version version)
{
    m_ready = version;
    m_readyWasHeldBack = isHeldBack(version);
    setPhase(Phase::Ready);
    m_delegate.willInstallUpdateOnQuit(version, [self = QPointer(this)] {
        if (!self || !self->m_ready || self->m_installing.isRunning())
            return;
        self->m_installing.start(
            [updater = self.data()](std::stop_token stop) { return updater->installAndRelaunch(std::move(stop)); });
    });
}

Task<> FeedUpdater::installAndRelaunch(std::stop_token stop)
{
    co_await installOnQuit(stop);
    // Also when that has failed: whoever has prepared for a relaunch has ended what was running.
    if (!stop.stop_requested())
        m_d.relaunch(m_d.program.installation->startPath());
}

Task<> FeedUpdater::installOnQuit(std::stop_token stop)
{
    if (!m_ready)
        co_return;
    const Version version = *std::exchange(m_ready, std::nullopt);
    // Another program has installed it meanwhile, and its user has gone back from it.
    if (!m_readyWasHeldBack && isHeldBack(version))
        co_return setPhase(Phase::Found);
    const auto activated = co_await m_installer->activate(version, stop);
    if (stop.stop_requested())
        co_return;
    m_memory.setFailedVersion(activated ? std::nullopt : std::optional(version));
    if (!activated)
        fail(activated.error());
}

void FeedUpdater::setPhase(Phase phase)
{
    m_state.phase = phase;
    if (phase != Phase::Failed)
        m_state.error.reset();
    Q_EMIT stateChanged();
}

void FeedUpdater::fail(const Error &error)
{
    qCWarning(logUpdate, "%s", qUtf8Printable(error.localizedDescription));
    m_state.error = error;
    setPhase(Phase::Failed);
}

} // namespace ostrel
