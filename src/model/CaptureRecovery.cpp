#include "model/CaptureRecovery.h"

#include "base/Checked.h"
#include "base/Clock.h"
#include "base/Fault.h"
#include "base/Log.h"
#include "base/SerialQueue.h"
#include "capture/RecordingResumeMarker.h"
#include "capture/WorkspaceEvents.h"
#include "model/LimitedHold.h"
#include "model/ModelState.h"
#include "model/ObserverControl.h"
#include "model/RecordingControl.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace ostrel {

using namespace std::chrono_literals;

namespace {

constexpr auto resumePause = 2s;
/// A docking station brings its displays one after the other; each restart would cost another set of first pictures.
constexpr auto displaySettlingTime = 1s;
/// How often it is looked whether the session is still locked.
constexpr auto pauseWhileLocked = 2s;
/// Displays that change again and again, or can't be held, are given twice the time each time, up to 32 s.
constexpr int mostDoublings = 5;
/// A stall is the user's business when a new start of capture has not ended it by then.
constexpr auto stallPatience = 30s;
/// An observer that is slow, too, where the screen hangs, is waited for no longer before an update than at a shutdown.
constexpr auto hungScreenPatience = 4s;
/// The time that the observer needs to come up.
constexpr auto startUpTime = 3s;

/// The user has spoken against capture, or was asked and has said nothing: no further attempt changes that, and while
/// there were some, a recording without pictures would go on in silence.
bool isUpToUser(const Error &error)
{
    return isFault(error, Fault::ScreenSharingEnded) || isFault(error, Fault::ScreenCaptureDeclined) ||
           isFault(error, Fault::ScreenQuestionUnanswered);
}

} // namespace

CaptureRecovery::CaptureRecovery(Dependencies dependencies)
    : m_with(dependencies), m_sleepWakeMonitor(dependencies.workspace)
{
    m_sleepWakeMonitor.onWillSleep = [this] { willSleep(); };
    m_sleepWakeMonitor.onDidWake = [this] { perform(m_recoveryPolicy.didWake()); };
    const CaptureNews *news = &m_with.recording.captureNews();
    connect(news, &CaptureNews::captureDied, this, [this](const QString &message) {
        qCWarning(logScreenCapture, "screen capture interrupted: %s", qUtf8Printable(message));
        perform(m_recoveryPolicy.captureDied());
    });
    connect(news, &CaptureNews::displaysChanged, this, &CaptureRecovery::displaysChanged);
    connect(news, &CaptureNews::captureStalled, this, &CaptureRecovery::captureStalled);
    connect(news, &CaptureNews::picturesMissing, this, &CaptureRecovery::picturesMissing);
    connect(news, &CaptureNews::captureStartStalled, this, &CaptureRecovery::captureStartStalled);
    connect(news, &CaptureNews::captureGoesOn, this, &CaptureRecovery::captureGoesOn);
    connect(&m_with.recording, &RecordingControl::captureStartEnded, this, &CaptureRecovery::captureStartEnded);
    connect(&m_with.recording, &RecordingControl::startBegun, this, &CaptureRecovery::forget);
    connect(&m_with.recording, &RecordingControl::endingBegun, this, &CaptureRecovery::forget);
}

void CaptureRecovery::forget()
{
    m_recoveryPolicy.reset();
    forgetStall();
    m_missingPictures.reset();
    m_displayRestarts = 0;
    m_displaysTask.cancel();
    m_captureResumeTask.cancel();
}

void CaptureRecovery::willSleep()
{
    m_sleepHold = m_sleepWakeMonitor.takeHold();
    perform(m_recoveryPolicy.willSleep(m_with.recording.isCapturing()));
    m_sleepHold.reset();
}

void CaptureRecovery::perform(const CaptureRecoveryAction &action)
{
    using Kind = CaptureRecoveryAction::Kind;
    if (action.kind == Kind::none)
        return;
    m_displaysTask.cancel();
    m_stallTask.cancel();
    m_captureResumeTask.cancel();
    switch (action.kind) {
    case Kind::none:
        break;
    case Kind::stopForSleep:
        stopForSleep();
        break;
    case Kind::resume:
        // First: what hangs may never let go of the attempt.
        if (m_stall && !m_toldStall)
            m_stallTask.start([this](std::stop_token stop) { return tellUnlessItGoesOn(std::move(stop)); });
        m_captureResumeTask.start([this](std::stop_token stop) { return attemptCaptureResume(std::move(stop)); });
        break;
    case Kind::giveUp:
        m_with.recording.giveUp(action.message);
        break;
    }
}

void CaptureRecovery::stopForSleep()
{
    // The scope keeps the closure, and with it the hold, until capture has come to rest.
    const auto hold = std::make_shared<LimitedHold>(m_with.clock, std::exchange(m_sleepHold, nullptr));
    m_tasks.spawn([this, hold](std::stop_token stop) { return m_with.recording.suspendCapture(std::move(stop)); });
}

Task<> CaptureRecovery::attemptCaptureResume(std::stop_token stop)
{
    do {
        const auto resumed = co_await m_with.recording.resumeCapture(stop);
        if (stop.stop_requested())
            co_return;
        if (resumed) {
            m_recoveryPolicy.resumeSucceeded();
            // Whether a stall is over shows only later.
            if (!m_toldStall)
                m_with.state.setHelperError(std::nullopt);
            co_return;
        }
        const QString message = resumed.error().localizedDescription;
        const auto action = isUpToUser(resumed.error())
                                ? CaptureRecoveryAction{.kind = CaptureRecoveryAction::Kind::giveUp, .message = message}
                                : m_recoveryPolicy.resumeFailed(message);
        if (action.kind == CaptureRecoveryAction::Kind::giveUp) {
            perform(action);
            co_return;
        }
    } while (co_await m_with.clock.sleepFor(resumePause, stop));
}

void CaptureRecovery::displaysChanged()
{
    if (!m_displaysTask.isRunning())
        m_displaysTask.start([this](std::stop_token stop) { return resumeOnChangedDisplays(std::move(stop)); });
}

Task<> CaptureRecovery::resumeOnChangedDisplays(std::stop_token stop)
{
    const int doublings = std::min(m_displayRestarts, mostDoublings);
    if (!co_await m_with.clock.sleepFor(displaySettlingTime * (1 << doublings), stop))
        co_return;
    // Behind a lock screen nothing is captured, and a desktop may open no session.
    while (m_with.workspace.isLocked()) {
        if (!co_await m_with.clock.sleepFor(pauseWhileLocked, stop))
            co_return;
    }
    ++m_displayRestarts;
    qCInfo(logScreenCapture, "screen capture starts again: the displays have changed");
    perform(m_recoveryPolicy.captureDied());
}

void CaptureRecovery::captureStalled(const QString &message)
{
    qCWarning(logScreenCapture, "%s", qUtf8Printable(message));
    const bool isStillOne = std::exchange(m_stall, message).has_value();
    if (isStillOne)
        tellOfStall();
    if (m_stallRestarts == m_recoveryPolicy.maxResumeAttempts)
        return perform({.kind = CaptureRecoveryAction::Kind::giveUp, .message = message});
    m_stallRestarts = checkedAdd(m_stallRestarts, 1);
    perform(m_recoveryPolicy.captureDied());
}

Task<> CaptureRecovery::tellUnlessItGoesOn(std::stop_token stop)
{
    if (co_await m_with.clock.sleepFor(stallPatience, stop))
        tellOfStall();
}

void CaptureRecovery::tellOfStall()
{
    qCCritical(logScreenCapture, "%s; starting it again has not helped", qUtf8Printable(*m_stall));
    const QString message = *m_stall; // whoever is told may end the recording, and the stall with it
    tell(m_toldStall, message);
}

/// @param told what of this kind the user was told before
void CaptureRecovery::tell(std::optional<QString> &told, const QString &message)
{
    const bool isNew = told != message;
    told = message;
    m_with.state.setHelperError(message);
    if (isNew)
        Q_EMIT stallTold(message);
}

void CaptureRecovery::picturesMissing(const QString &message)
{
    // Nothing is started again for it: a screen that is switched off sends none either.
    qCWarning(logScreenCapture, "%s", qUtf8Printable(message));
    tell(m_missingPictures, message);
}

void CaptureRecovery::captureStartStalled(const QString &message)
{
    qCWarning(logScreenCapture, "%s", qUtf8Printable(message));
    // A start because of a stall: that is told by its own words, which name the displays.
    if (!m_stall)
        tell(m_stalledStart, message);
}

void CaptureRecovery::captureStartEnded()
{
    if (m_stalledStart && m_with.state.helperError() == m_stalledStart)
        m_with.state.setHelperError(std::nullopt);
    m_stalledStart.reset();
}

void CaptureRecovery::captureGoesOn()
{
    m_displayRestarts = 0;
    if (m_stall)
        qCInfo(logScreenCapture, "screen capture goes on after a stall");
    const auto shown = m_with.state.helperError();
    if (shown && (shown == m_toldStall || shown == m_missingPictures))
        m_with.state.setHelperError(std::nullopt);
    forgetStall();
}

void CaptureRecovery::forgetStall()
{
    m_stallTask.cancel();
    m_stall.reset();
    m_toldStall.reset();
    m_stallRestarts = 0;
}

Task<> CaptureRecovery::prepareForUpdateRelaunch(std::stop_token stop)
{
    RecordingControl &recording = m_with.recording;
    if (recording.isUnderWay() || recording.pendingRecordingRestart()) {
        co_await m_with.worker.run(stop, [] { RecordingResumeMarker::write(); });
        if (stop.stop_requested())
            co_return;
    }
    if (recording.pendingRecordingRestart())
        recording.stopRecording(); // the next run begins it
    // Local copies: what the stop resumes destroys the closures.
    std::stop_source bound;
    const auto end = [bound] { std::stop_source(bound).request_stop(); };
    const std::stop_callback endWithCaller(stop, end);
    const auto withdrawLimit = m_with.clock.schedule(hungScreenPatience, [&recording, end] {
        if (recording.hasLeftScreenBehind())
            end();
    });
    bool isAnotherAskedFor = false;
    const auto endHere = [&] {
        isAnotherAskedFor = recording.isUnderWay();
        if (isAnotherAskedFor)
            recording.stopRecording();
        m_with.observer.stopHelper();
    };
    co_await recording.betweenRecordings(endHere, bound.get_token());
    withdrawLimit();
    if (stop.stop_requested())
        co_return;
    if (bound.stop_requested()) {
        recording.abandonEnding();
        endHere();
    }
    if (isAnotherAskedFor)
        co_await m_with.worker.run(stop, [] { RecordingResumeMarker::write(); });
}

void CaptureRecovery::resumeRecordingAfterUpdateIfNeeded()
{
    m_tasks.spawn([this](std::stop_token stop) { return resumeAfterUpdate(std::move(stop)); });
}

Task<> CaptureRecovery::resumeAfterUpdate(std::stop_token stop)
{
    const auto wasRecording = co_await m_with.worker.run(stop, [] { return RecordingResumeMarker::consume(); });
    if (!wasRecording.value_or(false) || !co_await m_with.clock.sleepFor(startUpTime, stop))
        co_return;
    const RecordingControl &recording = m_with.recording;
    if (!recording.isUnderWay() && !recording.stoppingRecording() && !m_with.state.observerIsRunning())
        m_with.recording.toggleRecording();
}

} // namespace ostrel
