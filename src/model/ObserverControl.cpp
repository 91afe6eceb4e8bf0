#include "model/ObserverControl.h"

#include "base/Checked.h"
#include "base/Clock.h"
#include "base/Fault.h"
#include "model/ModelState.h"
#include "observer/LocalObserverAPI.h"

#include <algorithm>

namespace ostrel {

using std::chrono::milliseconds;

namespace {

constexpr qint64 shortestRestartPauseMs = 5000;
constexpr milliseconds reachableRetryPause{250};
/// Somebody waits at a terminal, and nothing is lost by giving up.
constexpr milliseconds leftoversPatience{20'000};

QString startingText()
{
    return QStringLiteral("Starting recording service\u2026");
}

/// Says only that the observer is on its way, so anything that is known better may take its place.
bool isTransient(const QString &message)
{
    return message == startingText() || message == QLatin1String("Helper stopped") ||
           message == QLatin1String("Starting helper");
}

Error repoRootNotFound()
{
    return {.domain = QStringLiteral("TamskOstrel.Observer"),
            .code = 1,
            .localizedDescription = QStringLiteral("Repo root not found")};
}

} // namespace

ObserverControl::ObserverControl(Dependencies dependencies)
    : m_with(std::move(dependencies)), m_helper(m_with.launcher), m_api(makeApi())
{}

ObserverControl::~ObserverControl() = default;

Result<> ObserverControl::startHelper()
{
    if (m_with.owner == Owner::AnotherProgram)
        return {};
    Result<> started = std::unexpected(repoRootNotFound());
    if (m_with.repoRoot) {
        const ObserverSettings &settings = m_with.state.settings();
        started = m_helper.start(
            *m_with.repoRoot, m_with.localAPIToken,
            {.analysisApiToken = settings.analysisApiToken, .byokGoogleVertexApiKey = settings.byokGoogleVertexApiKey});
    }
    if (!started) {
        m_startFailure = started.error().localizedDescription;
        m_with.state.setHelperError(m_startFailure);
        return started;
    }
    m_startFailure.reset();
    m_with.state.setHelperError(std::nullopt);
    return {};
}

std::shared_ptr<LocalObserverAPI> ObserverControl::makeApi() const
{
    return std::make_shared<LocalObserverAPI>(m_with.state.settings().localhostBaseURL(), m_with.localAPIToken,
                                              m_with.transport, m_with.worker);
}

void ObserverControl::useSettingsPort()
{
    checkedIncrement(m_commandEvents);
    m_api = makeApi();
}

void ObserverControl::restartHelper()
{
    hooks.stopCapture();
    stopHelper();
    static_cast<void>(startHelper());
    hooks.startPolling();
}

void ObserverControl::stopHelper()
{
    forgetRecording();
    m_helper.stop();
}

Task<> ObserverControl::refreshStatus(std::stop_token stop)
{
    const auto api = m_api;
    const qint64 sentAfter = m_commandEvents;
    const auto answer = co_await api->status(stop);
    if (stop.stop_requested())
        co_return;
    const bool isCurrent = sentAfter == m_commandEvents;
    if (isCurrent)
        noteRecordingObserver(answer);
    if (!answer) {
        noteUnreachable(answer.error());
        co_return;
    }
    noteReachable();
    if (isCurrent)
        hooks.applyObserverStatus(*answer);
}

Task<Result<>> ObserverControl::waitUntilReachable(int attempts, std::stop_token stop)
{
    const auto answer = co_await awaitAnswer(attempts, std::move(stop));
    if (!answer)
        co_return std::unexpected(answer.error());
    co_return {};
}

Task<Result<ObserverControl::Answer>> ObserverControl::awaitAnswer(int attempts, std::stop_token stop)
{
    const auto api = m_api;
    for (int attempt = 1;; ++attempt) {
        const qint64 sentAfter = m_commandEvents;
        const auto answer = co_await api->status(stop);
        if (stop.stop_requested())
            break;
        if (answer) {
            noteReachable();
            co_return Answer{.status = *answer, .isCurrent = sentAfter == m_commandEvents};
        }
        // No waiting makes a wrong address right.
        if (attempt == attempts || isFault(answer.error(), Fault::BadUrl)) {
            const Error error = withAddress(answer.error());
            m_waitFailure = error.localizedDescription;
            co_return std::unexpected(error);
        }
        if (!co_await m_with.clock.sleepFor(reachableRetryPause, stop))
            break;
    }
    co_return std::unexpected(faultError(Fault::Cancelled));
}

Task<Result<>> ObserverControl::bringUp(std::stop_token stop)
{
    const auto helper = startHelperQuietly();
    // Without a child, the only observer that can answer is one that somebody else runs: it is there or it isn't.
    const auto answer = co_await awaitAnswer(helper ? reachableAttempts : 1, stop);
    if (stop.stop_requested())
        co_return std::unexpected(faultError(Fault::Cancelled));
    if (!answer)
        co_return std::unexpected(helper ? answer.error() : helper.error());
    if (answer->isCurrent) {
        noteRecordingObserver(answer->status);
        hooks.applyObserverStatus(answer->status);
    }
    co_return {};
}

Task<Error> ObserverControl::withReason(Error error, std::optional<QString> lastError, std::stop_token stop)
{
    if (!isFault(error, Fault::BadServerResponse))
        co_return error;
    co_await refreshStatus(stop);
    if (stop.stop_requested() || !m_with.state.status())
        co_return error;
    const auto told = m_with.state.status()->lastError.value_or(QString());
    // The same mistake made again has the same reason; any other complaint of before is about something else.
    if (told.isEmpty() || (told == lastError && told != m_reason))
        co_return error;
    m_reason = told;
    error.localizedDescription = told;
    co_return error;
}

/// An invalid address no longer tells what it was made of, and a wrong port is what makes ours invalid.
Error ObserverControl::withAddress(const Error &error) const
{
    if (!isFault(error, Fault::BadUrl))
        return error;
    return faultError(Fault::BadUrl, QStringLiteral("http://127.0.0.1:%1").arg(m_with.state.settings().localPort));
}

Task<Result<ObserverStatus>> ObserverControl::startRecording(std::stop_token stop)
{
    const auto api = m_api;
    checkedIncrement(m_commandEvents);
    forgetRecording();
    const auto answer = co_await api->startRecording(QStringLiteral("external"), stop);
    if (stop.stop_requested())
        co_return answer;
    noteAnswered(answer);
    if (answer && answer->running)
        m_recording = Recording{.sessionId = answer->sessionId};
    co_return answer;
}

Task<Result<ObserverStatus>> ObserverControl::stopRecording(std::stop_token stop)
{
    const auto api = m_api;
    checkedIncrement(m_commandEvents);
    const auto answer = co_await api->stopRecording(stop);
    if (stop.stop_requested())
        co_return answer;
    noteAnswered(answer);
    if (!answer && !isFault(answer.error(), Fault::TimedOut))
        co_await lookForRecordingObserver(api, stop);
    co_return answer;
}

/// A connection that broke does not tell whether a process ended with it. A new one does: it is answered, or nobody is
/// there to take it, or it breaks as well, because the process is just ending.
Task<> ObserverControl::lookForRecordingObserver(std::shared_ptr<LocalObserverAPI> api, std::stop_token stop)
{
    if (!m_recording || m_recording->observerEnded)
        co_return;
    const auto status = co_await api->status(stop);
    if (stop.stop_requested() || !m_recording)
        co_return;
    noteRecordingObserver(status);
    if (!status && isFault(status.error(), Fault::ConnectionClosed))
        m_recording->observerEnded = true;
}

Task<bool> ObserverControl::writeLeftovers(std::stop_token stop)
{
    if (!startHelper())
        co_return false;
    std::stop_source bound;
    // A local copy: what the stop resumes destroys the closure.
    const auto end = [bound] { std::stop_source(bound).request_stop(); };
    const std::stop_callback endWithCaller(stop, end);
    const auto withdrawTimer = m_with.clock.schedule(leftoversPatience, end);
    const bool written = co_await askToWriteLeftovers(bound.get_token());
    withdrawTimer();
    if (stop.stop_requested())
        co_return false;
    stopHelper();
    co_return written;
}

Task<bool> ObserverControl::askToWriteLeftovers(std::stop_token stop)
{
    const auto reachable = co_await waitUntilReachable(reachableAttempts, stop);
    if (!reachable)
        co_return false;
    // It is answered when nothing is left to write.
    const auto answer = co_await stopRecording(stop);
    co_return answer.has_value();
}

void ObserverControl::noteAnswered(const Result<ObserverStatus> &answer)
{
    checkedIncrement(m_commandEvents);
    noteRecordingObserver(answer);
    if (answer)
        m_with.state.setStatus(*answer);
}

void ObserverControl::noteRecordingObserver(const Result<ObserverStatus> &answer)
{
    if (!m_recording)
        return;
    if (answer) {
        // One that names no session tells nothing: an observer need not name a session that is over.
        if (answer->sessionId || !m_recording->sessionId)
            m_recording->observerEnded = m_recording->sessionId && answer->sessionId != m_recording->sessionId;
    } else if (isFault(answer.error(), Fault::ConnectionRefused) || isFault(answer.error(), Fault::PortTaken)) {
        m_recording->observerEnded = true;
    }
}

Result<> ObserverControl::startHelperQuietly()
{
    // The recording went with the child, unless it was somebody else's, who will name its session again.
    if (m_recording && !m_helper.isRunning())
        m_recording->observerEnded = true;
    const auto shown = m_with.state.helperError();
    const bool isAboutSomethingElse = shown && !isOfOurMaking(*shown);
    auto started = startHelper();
    // A new child mends a failed launch, but not a recording that has failed.
    if (started && isAboutSomethingElse)
        m_with.state.setHelperError(shown);
    return started;
}

void ObserverControl::startHelperAgainIfDead()
{
    if (m_with.owner == Owner::AnotherProgram || m_helper.isRunning())
        return;
    const qint64 nowMs = m_with.clock.nowMs();
    // A clock that was set back would count for hours; so it counts from now.
    m_lastHelperRestartMs = std::min(m_lastHelperRestartMs, nowMs);
    if (checkedSubtract(nowMs, m_lastHelperRestartMs) <= shortestRestartPauseMs)
        return;
    m_lastHelperRestartMs = nowMs;
    static_cast<void>(startHelperQuietly());
}

bool ObserverControl::isOfOurMaking(const QString &message) const
{
    return isTransient(message) || message == m_startFailure || message == m_portTaken || message == m_waitFailure;
}

void ObserverControl::noteUnreachable(const Error &error)
{
    startHelperAgainIfDead();
    const auto shown = m_with.state.helperError();
    if (isFault(error, Fault::PortTaken)) {
        m_portTaken = error.localizedDescription;
        // Without a child of our own there is no use for the port: that failure is the one to see to first.
        if (!m_startFailure || shown != m_startFailure)
            m_with.state.setHelperError(m_portTaken);
        return;
    }
    if (!shown || isTransient(*shown) || shown == m_portTaken)
        m_with.state.setHelperError(startingText());
    m_portTaken.reset();
}

void ObserverControl::noteReachable()
{
    const auto shown = m_with.state.helperError();
    if (shown && (isTransient(*shown) || shown == m_portTaken || shown == m_waitFailure))
        m_with.state.setHelperError(std::nullopt);
    m_portTaken.reset();
    m_waitFailure.reset();
}

} // namespace ostrel
