#include "app/ObserverSession.h"

#include "app/RunTask.h"
#include "base/Fault.h"
#include "observer/LocalObserverAPI.h"
#include "observer/NetworkTransport.h"
#include "observer/ProcessLauncher.h"

namespace ostrel {

namespace {

/// Has the observer that is started analyse nothing.
class HoldingLauncher final : public ProcessLauncher
{
public:
    explicit HoldingLauncher(ProcessLauncher &launcher) : m_launcher(launcher) {}

    Result<std::unique_ptr<ChildProcess>> launch(const ProcessDescription &description) override
    {
        ProcessDescription holding = description;
        holding.environment.insert(QStringLiteral("OSTREL_HOLD_ANALYSIS"), QStringLiteral("1"));
        return m_launcher.launch(holding);
    }

private:
    ProcessLauncher &m_launcher;
};

} // namespace

std::expected<std::unique_ptr<ObserverSession>, QString> ObserverSession::open(const Platform &platform)
{
    auto found = findObserver(platform);
    if (!found)
        return std::unexpected(found.error());
    return std::unique_ptr<ObserverSession>(new ObserverSession(platform, *std::move(found)));
}

ObserverSession::ObserverSession(const Platform &platform, FoundObserver found)
    : m_lock(std::move(found.lock)), m_launcher(std::make_unique<HoldingLauncher>(platform.processes)),
      m_transport(std::make_unique<NetworkTransport>(m_clock)), m_worker(QStringLiteral("com.tamsk.ostrel.observer")),
      m_state(std::move(found.settings)), m_observer({.clock = m_clock,
                                                      .state = m_state,
                                                      .launcher = *m_launcher,
                                                      .transport = *m_transport,
                                                      .worker = m_worker,
                                                      .localAPIToken = std::move(found.localAPIToken),
                                                      .repoRoot = std::move(found.repoRoot),
                                                      .owner = found.owner})
{
    m_observer.hooks = hooksOfACommand(m_state);
}

ObserverSession::~ObserverSession()
{
    m_observer.stopHelper();
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
