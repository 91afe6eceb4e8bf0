#include "app/ObserverSession.h"

#include "app/ObserverQuestion.h"
#include "app/RunTask.h"
#include "base/Fault.h"
#include "model/LocalApiToken.h"
#include "observer/LocalObserverAPI.h"
#include "observer/NetworkTransport.h"
#include "observer/RepoLocator.h"
#include "observer/SecretStore.h"
#include "observer/SettingsStore.h"

namespace ostrel {

std::expected<std::unique_ptr<ObserverSession>, QString> ObserverSession::open(const Platform &platform)
{
    Start start{.settings = SettingsStore(platform.secrets).load(),
                .localAPIToken = localApiTokenOrFallback(platform.secrets),
                .repoRoot = RepoLocator::forThisProgram().resolveRepoRoot(),
                .lock = std::nullopt};
    const ObserverAnswer found = askObserver(platform.secrets, start.settings);
    if (found.reach == ObserverReach::NotRunning) {
        auto lock = RecorderLock::acquire(RecorderLock::Purpose::ArchiveCommand);
        // Somebody else is about to have one: that one is waited for.
        if (!lock && !RecorderLock::isHeldByAnother(lock.error()))
            return std::unexpected(lock.error().localizedDescription);
        if (lock) {
            start.lock.emplace(*std::move(lock));
            start.owner = ObserverControl::Owner::Us;
            qputenv("OSTREL_HOLD_ANALYSIS", "1");
        }
    } else if (found.reach != ObserverReach::Answers) {
        return std::unexpected(inOneLine(adviceOn(found)));
    }
    return std::unique_ptr<ObserverSession>(new ObserverSession(platform, std::move(start)));
}

ObserverSession::ObserverSession(const Platform &platform, Start start)
    : m_lock(std::move(start.lock)), m_transport(std::make_unique<NetworkTransport>(m_clock)),
      m_worker(QStringLiteral("com.tamsk.ostrel.observer")), m_state(std::move(start.settings)),
      m_observer({.clock = m_clock,
                  .state = m_state,
                  .launcher = platform.processes,
                  .transport = *m_transport,
                  .worker = m_worker,
                  .localAPIToken = std::move(start.localAPIToken),
                  .repoRoot = std::move(start.repoRoot),
                  .owner = start.owner})
{
    // There is neither capture nor polling beside the command.
    m_observer.hooks = {.applyObserverStatus = [this](const ObserverStatus &status) { m_state.setStatus(status); },
                        .stopCapture = [] {},
                        .startPolling = [] {}};
}

ObserverSession::~ObserverSession()
{
    m_observer.stopHelper();
    qunsetenv("OSTREL_HOLD_ANALYSIS");
}

template <class Answer, class Ask>
Result<Answer> ObserverSession::answerTo(Ask ask)
{
    Result<Answer> answer = std::unexpected(faultError(Fault::Cancelled));
    // It runs to its end within this call. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    runToEnd([&](std::stop_token stop) -> Task<> {
        if (const auto isUp = co_await m_observer.bringUp(stop); !isUp) {
            answer = std::unexpected(isUp.error());
            co_return;
        }
        const auto before = m_state.status() ? m_state.status()->lastError : std::nullopt;
        const auto api = m_observer.api();
        answer = co_await ask(*api, stop);
        if (!answer)
            answer = std::unexpected(co_await m_observer.withReason(answer.error(), before, stop));
    });
    return answer;
}

Result<RequestPreview> ObserverSession::preview(bool withPictures)
{
    return answerTo<RequestPreview>(
        [withPictures](LocalObserverAPI &api, std::stop_token stop) { return api.preview(withPictures, stop); });
}

Result<ForgetReport> ObserverSession::forget(qint64 fromMs, qint64 toMs)
{
    return answerTo<ForgetReport>(
        [fromMs, toMs](LocalObserverAPI &api, std::stop_token stop) { return api.forget(fromMs, toMs, stop); });
}

} // namespace ostrel
