#include "model/RecordingControl.h"

#include "base/Fault.h"
#include "base/Op.h"
#include "capture/ScreenCaptureRecorder.h"
#include "model/ModelState.h"
#include "model/PermissionsArea.h"
#include "model/StatusTexts.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <variant>

namespace ostrel {

namespace {

QString permissionNeededText()
{
    return QStringLiteral("Screen Recording permission needed in System Settings");
}

/// Waits until the event loop has delivered all that the recorder has published so far.
Task<> publishedNews(std::stop_token stop)
{
    co_await Op<std::monostate>(std::move(stop), [](auto resolve) {
        QMetaObject::invokeMethod(QCoreApplication::instance(), [resolve] { resolve({}); }, Qt::QueuedConnection);
        return nullptr;
    });
}

} // namespace

RecordingControl::RecordingControl(Dependencies dependencies)
    : m_with(dependencies), m_observerStart(m_with.observer), m_news(m_with.recorder, [this] { return isCapturing(); })
{
    // A batch was refused: the recorder has dropped it, asked the observer to stop, and stops itself.
    m_with.recorder.onError = [this](const QString &message) {
        captureFailed(message, {.skipFlush = true, .observer = ObserverStop::AskIfRunning});
    };
    connect(&m_with.permissions, &PermissionsArea::permissionsChanged, this, [this] {
        const bool granted = m_with.permissions.permissions().screenCaptureAuthorized;
        if (granted && m_with.state.helperError() == permissionNeededText())
            m_with.state.setHelperError(std::nullopt);
    });
}

RecordingControl::~RecordingControl()
{
    m_with.recorder.onError = nullptr;
    // The start first: when its request is let go of, it already knows that it is cancelled.
    m_start.cancel();
    m_life.request_stop();
}

void RecordingControl::toggleRecording()
{
    if (m_closed)
        return;
    if (m_stoppingRecording) {
        setPendingRecordingRestart(true);
        return;
    }
    if (m_with.state.observerIsRunning())
        stopRecording();
    else if (!m_starting)
        beginStart();
}

void RecordingControl::beginStart()
{
    m_starting = true;
    m_endIsDue = true;
    Q_EMIT startBegun();
    m_start.start([this](std::stop_token stop) { return startRecording(std::move(stop)); });
}

/// Whoever cancels this also brings both sides to rest, so a cancelled start only returns.
Task<> RecordingControl::startRecording(std::stop_token stop)
{
    const auto life = m_life.get_token();
    const auto turn = co_await m_turn.acquire(stop);
    if (!turn)
        co_return;
    m_phase = Phase::Preparing;
    m_isAbandoned = false; // it is over
    m_failedWhileEnding = false;
    const auto started = co_await startBothSides(stop);
    if (stop.stop_requested())
        co_return;
    m_starting = false;
    if (started) {
        Q_EMIT recordingStarted();
        co_return;
    }
    m_phase = Phase::Ending;
    m_with.state.setHelperError(started.error().message);
    if (started.error().observerMayRun) {
        co_await m_with.observer.stopRecording(life);
        if (stop.stop_requested())
            co_return;
    }
    finish({.reason = RecordingEnd::StartFailed});
}

Task<std::expected<void, StartFailure>> RecordingControl::startBothSides(std::stop_token stop)
{
    const auto permissions = co_await m_with.permissions.refreshPermissions(stop);
    if (!permissions)
        co_return {};
    if (!permissions->screenCaptureAuthorized)
        co_return std::unexpected(StartFailure{.message = permissionNeededText()});
    const auto observing = co_await m_observerStart.run(m_life.get_token(), stop);
    if (!observing || stop.stop_requested())
        co_return observing;
    m_phase = Phase::Capturing;
    m_captureIsAtRest = false;
    const auto capturing = co_await startCapture();
    if (!capturing)
        co_return std::unexpected(
            StartFailure{.message = capturing.error().localizedDescription, .observerMayRun = true});
    co_return {};
}

void RecordingControl::stopRecording()
{
    if (m_stoppingRecording) {
        setPendingRecordingRestart(false);
        return;
    }
    setStoppingRecording(true);
    setPendingRecordingRestart(false);
    beginEnding({.reason = RecordingEnd::Requested});
}

void RecordingControl::captureFailed(const QString &message, Ending ending)
{
    m_with.state.setHelperError(message);
    if (m_phase != Phase::Capturing) {
        // The last batch of a stop under way, or news of a recording that has ended already.
        m_failedWhileEnding = m_phase == Phase::Ending;
        return;
    }
    setStoppingRecording(true);
    ending.reason = RecordingEnd::CaptureFailed;
    ending.message = message;
    beginEnding(std::move(ending));
}

void RecordingControl::observerStopped()
{
    if (m_phase == Phase::Capturing)
        beginEnding({.reason = RecordingEnd::ObserverStopped, .skipFlush = true, .observer = ObserverStop::Leave});
}

void RecordingControl::stopCapture()
{
    // An ending does so itself, and what is only asked for has not begun: its capture would be stopped in its place.
    if (m_phase != Phase::Capturing)
        return;
    m_endings.spawn([this](std::stop_token stop) { return suspendCapture(std::move(stop)); });
}

Task<> RecordingControl::suspendCapture(std::stop_token stop)
{
    const auto turn = co_await m_turn.acquire(std::move(stop));
    if (turn)
        co_await m_with.recorder.stop(false);
}

/// Whoever cancels this stops capture when its turn comes, or starts it once more, so a cancelled one only returns.
Task<Result<>> RecordingControl::resumeCapture(std::stop_token stop)
{
    const auto turn = co_await m_turn.acquire(stop);
    if (!turn || m_phase != Phase::Capturing)
        co_return std::unexpected(faultError(Fault::Cancelled));
    co_return co_await startCapture();
}

Task<Result<>> RecordingControl::startCapture()
{
    const auto life = m_life.get_token(); // a start is seen through by whoever has cancelled it
    auto started = co_await m_with.recorder.start(m_with.state.settings(), m_with.observer.api());
    if (!life.stop_requested())
        Q_EMIT captureStartEnded();
    co_return started;
}

void RecordingControl::giveUp(const QString &message)
{
    if (m_phase != Phase::Capturing)
        return;
    setStoppingRecording(true);
    beginEnding({.reason = RecordingEnd::CaptureFailed, .message = message, .refreshesStatus = true});
}

Task<> RecordingControl::betweenRecordings(std::function<void()> act, std::stop_token stop)
{
    if (isUnderWay())
        stopRecording();
    // The ending has asked for its turn before.
    const auto turn = co_await m_turn.acquire(std::move(stop));
    if (turn)
        act();
}

Task<> RecordingControl::close(std::stop_token stop)
{
    m_closed = true;
    setPendingRecordingRestart(false);
    const bool active = isUnderWay();
    setStoppingRecording(true);
    m_phase = Phase::Ending;
    m_starting = false;
    m_start.cancel();
    Q_EMIT endingBegun();
    const Ending ending{.reason = RecordingEnd::Requested, .announced = active};
    if (m_isAbandoned)
        finish(ending);
    else
        co_await runEnding(ending, std::move(stop));
}

bool RecordingControl::hasLeftScreenBehind() const
{
    return m_with.recorder.hasLeftBehind();
}

void RecordingControl::abandonEnding()
{
    m_endings.cancelAll();
    if (m_phase == Phase::Idle)
        return;
    m_isAbandoned = true;
    Ending ending{.reason = RecordingEnd::Requested, .announced = m_endIsDue};
    if (!m_captureIsAtRest) {
        ending.reason = RecordingEnd::CaptureFailed;
        ending.message = StatusTexts::lastPicturesNotDelivered();
    }
    finish(std::move(ending));
}

void RecordingControl::beginEnding(Ending ending)
{
    m_phase = Phase::Ending;
    m_starting = false;
    m_start.cancel();
    Q_EMIT endingBegun();
    m_endings.spawn([this, ending](std::stop_token stop) { return runEnding(ending, std::move(stop)); });
}

Task<> RecordingControl::runEnding(Ending ending, std::stop_token stop)
{
    // A start that waits for the user keeps its turn, though it was cancelled.
    m_with.recorder.interruptWaiting();
    const auto turn = co_await m_turn.acquire(stop);
    if (!turn)
        co_return;
    const auto outcome = co_await m_with.recorder.stop(ending.skipFlush);
    if (stop.stop_requested())
        co_return;
    m_captureIsAtRest = true;
    if (outcome == ScreenCaptureRecorder::StopOutcome::LeftBehind) {
        m_with.state.setHelperError(StatusTexts::captureDidNotAnswer());
        m_failedWhileEnding = true;
    }
    co_await publishedNews(stop); // that the last batch failed, belongs to this recording
    if (stop.stop_requested())
        co_return;
    if (ending.observer == ObserverStop::AskIfRunning) {
        co_await m_with.observer.refreshStatus(stop);
        if (stop.stop_requested())
            co_return;
    }
    const bool ask = ending.observer == ObserverStop::Ask ||
                     (ending.observer == ObserverStop::AskIfRunning && m_with.state.observerIsRunning());
    if (ask) {
        co_await m_with.observer.stopRecording(stop);
        if (stop.stop_requested())
            co_return;
    }
    if (ending.refreshesStatus) {
        co_await m_with.observer.refreshStatus(stop);
        if (stop.stop_requested())
            co_return;
    }
    finish(std::move(ending));
}

void RecordingControl::finish(Ending ending)
{
    m_phase = Phase::Idle;
    m_captureIsAtRest = true;
    if (ending.message)
        m_with.state.setHelperError(ending.message);
    if (ending.reason == RecordingEnd::Requested && m_failedWhileEnding)
        ending.reason = RecordingEnd::CaptureFailed;
    if (ending.reason != RecordingEnd::StartFailed && m_with.observer.recordingObserverEnded()) {
        ending.reason = RecordingEnd::ObserverEnded;
        noteObserverEnded();
    }
    m_with.observer.forgetRecording();
    const bool restart = m_pendingRecordingRestart;
    setPendingRecordingRestart(false);
    setStoppingRecording(false);
    if (ending.announced) {
        m_endIsDue = false;
        Q_EMIT recordingEnded(ending.reason);
    }
    if (restart && !m_closed)
        beginStart();
}

/// Which of its signs was seen first, a poll, a batch or a stop that failed, makes no difference from here on.
void RecordingControl::noteObserverEnded()
{
    m_with.state.setHelperError(StatusTexts::observerEnded());
    m_with.state.setObserverNotRunning();
}

void RecordingControl::setStoppingRecording(bool stopping)
{
    if (stopping == m_stoppingRecording)
        return;
    m_stoppingRecording = stopping;
    Q_EMIT stoppingRecordingChanged();
}

void RecordingControl::setPendingRecordingRestart(bool pending)
{
    if (pending == m_pendingRecordingRestart)
        return;
    m_pendingRecordingRestart = pending;
    Q_EMIT pendingRecordingRestartChanged();
}

} // namespace ostrel
