#include "app/ArchiveSession.h"

#include "app/ObserverQuestion.h"
#include "app/RunTask.h"
#include "base/Fault.h"
#include "observer/LocalObserverAPI.h"
#include "observer/NetworkTransport.h"
#include "observer/SecretStore.h"
#include "observer/SettingsOnDisk.h"
#include "observer/TokenStore.h"

namespace ostrel {

namespace {

/// Runs one question to its end. @return Fault::Cancelled where it has none
template <class Answer>
Result<Answer> answerTo(const std::function<Task<Result<Answer>>(std::stop_token)> &ask)
{
    Result<Answer> answer = std::unexpected(faultError(Fault::Cancelled));
    // It runs to its end within this call. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    runToEnd([&](std::stop_token stop) -> Task<> { answer = co_await ask(std::move(stop)); });
    return answer;
}

} // namespace

ArchiveSession::Opened ArchiveSession::open(const Platform &platform)
{
    auto found = findObserver(platform);
    if (!found)
        return std::unexpected(found.error());
    return std::unique_ptr<ArchiveSession>(new ArchiveSession(platform, *std::move(found)));
}

ArchiveSession::Opened ArchiveSession::openToRead(const Platform &platform)
{
    FoundObserver found{
        .settings = readSettingsOnDisk().settings, .localAPIToken = {}, .repoRoot = {}, .lock = std::nullopt};
    const ObserverAnswer answer = askObserver(platform.secrets, found.settings);
    if (answer.reach == ObserverReach::NotRunning)
        return std::unexpected(
            QStringLiteral("The observer is not running, and only it knows the archive. It runs with "
                           "`ostrel record`."));
    if (answer.reach != ObserverReach::Answers)
        return std::unexpected(inOneLine(adviceOn(answer)));
    const auto token = platform.secrets.lookUp(localApiTokenService, secretAccount);
    found.localAPIToken = token.value_or(std::nullopt).value_or(QString());
    return std::unique_ptr<ArchiveSession>(new ArchiveSession(platform, std::move(found)));
}

ArchiveSession::ArchiveSession(const Platform &platform, FoundObserver found)
    : m_lock(std::move(found.lock)), m_transport(std::make_unique<NetworkTransport>(m_clock)),
      m_observerQueue(QStringLiteral("com.tamsk.ostrel.observer")), m_worker(QStringLiteral("com.tamsk.ostrel.worker")),
      m_state(std::move(found.settings)), m_observer({.clock = m_clock,
                                                      .state = m_state,
                                                      .launcher = platform.processes,
                                                      .transport = *m_transport,
                                                      .worker = m_observerQueue,
                                                      .localAPIToken = std::move(found.localAPIToken),
                                                      .repoRoot = std::move(found.repoRoot),
                                                      .owner = found.owner}),
      m_modals(m_clock, platform.dialogs), m_archive({.state = m_state,
                                                      .observer = m_observer,
                                                      .modals = m_modals,
                                                      .dialogs = platform.dialogs,
                                                      .worker = m_worker}),
      m_target({.state = m_state, .observer = m_observer, .modals = m_modals}), m_export({.clock = m_clock,
                                                                                          .state = m_state,
                                                                                          .observer = m_observer,
                                                                                          .modals = m_modals,
                                                                                          .dialogs = platform.dialogs,
                                                                                          .worker = m_worker})
{
    m_observer.hooks = hooksOfACommand(m_state);
}

ArchiveSession::~ArchiveSession()
{
    m_observer.stopHelper();
}

Result<ArchiveStatus> ArchiveSession::fetchArchiveStatus()
{
    return answerTo<ArchiveStatus>([this](std::stop_token stop) { return m_archive.fetchArchiveStatus(stop); });
}

Result<ArchiveExportStatus> ArchiveSession::fetchExportStatus()
{
    return answerTo<ArchiveExportStatus>([this](std::stop_token stop) {
        const auto api = m_observer.api();
        return api->archiveExportStatus(stop);
    });
}

Result<std::optional<ArchiveTarget>> ArchiveSession::fetchArchiveTarget()
{
    return answerTo<std::optional<ArchiveTarget>>(
        [this](std::stop_token stop) { return m_target.fetchArchiveTarget(stop); });
}

Result<ArchiveTarget> ArchiveSession::storeArchiveTarget(const ArchiveTarget &target)
{
    return answerTo<ArchiveTarget>(
        [this, target](std::stop_token stop) { return m_target.storeArchiveTarget(target, stop); });
}

std::optional<QString> ArchiveSession::perform(const std::function<void(ArchiveArea &archive)> &begin)
{
    begin(m_archive);
    runUntil(m_archive, &ArchiveArea::archiveBusyChanged, [this] { return !m_archive.archiveBusy(); });
    return m_state.archiveMessageIsError() ? m_state.archiveMessage() : std::nullopt;
}

} // namespace ostrel
