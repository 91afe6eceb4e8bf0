#include "model/AppModel.h"

#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "capture/ScreenCaptureRecorder.h"
#include "capture/WorkspaceEvents.h"
#include "journal/JournalReader.h"

namespace ostrel {

using std::chrono::milliseconds;

namespace {

constexpr milliseconds pollPause{1500};

} // namespace

AppModel::AppModel(Dependencies with)
    : m_clock(with.clock), m_worker(with.worker), m_terminate(std::move(with.terminate)),
      m_state(std::move(with.settings)), m_observer({.clock = with.clock,
                                                     .state = m_state,
                                                     .launcher = with.launcher,
                                                     .transport = with.transport,
                                                     .worker = with.observerQueue,
                                                     .localAPIToken = std::move(with.localAPIToken),
                                                     .repoRoot = std::move(with.repoRoot)}),
      m_permissions({.state = m_state,
                     .worker = with.worker,
                     .requestQueue = with.requestQueue,
                     .screenCapture = with.screenCapture,
                     .accessibility = with.accessibility,
                     .defaults = with.defaults,
                     .systemSettings = with.systemSettings}),
      m_recorder(std::move(with.recorder)),
      m_recording({.state = m_state, .observer = m_observer, .permissions = m_permissions, .recorder = *m_recorder}),
      m_recovery({.clock = with.clock,
                  .state = m_state,
                  .observer = m_observer,
                  .recording = m_recording,
                  .workspace = with.workspace,
                  .worker = with.worker}),
      m_nativeModals(with.clock, with.dialogs),
      m_settingsEditing({.state = m_state,
                         .observer = m_observer,
                         .store = with.settingsStore,
                         .queue = with.settingsQueue,
                         .betweenRecordings =
                             [this](std::function<void()> act, std::stop_token stop) {
                                 return m_recording.betweenRecordings(std::move(act), std::move(stop));
                             }}),
      m_settingsDialogs({.state = m_state,
                         .modals = m_nativeModals,
                         .editing = m_settingsEditing,
                         .dialogs = with.dialogs,
                         .worker = with.worker}),
      m_byokInference({.clock = with.clock, .state = m_state, .modals = m_nativeModals, .editing = m_settingsEditing}),
      m_archive({.state = m_state,
                 .observer = m_observer,
                 .modals = m_nativeModals,
                 .dialogs = with.dialogs,
                 .worker = with.worker}),
      m_archiveTarget({.state = m_state, .observer = m_observer, .modals = m_nativeModals}),
      m_export({.clock = with.clock,
                .state = m_state,
                .observer = m_observer,
                .modals = m_nativeModals,
                .dialogs = with.dialogs,
                .worker = with.worker})
{
    m_observer.hooks = {.applyObserverStatus = [this](const ObserverStatus &status) { applyObserverStatus(status); },
                        .stopCapture = [this] { m_recording.stopCapture(); },
                        .startPolling = [this] { startPolling(); }};
    forwardSignals();
    forwardArchiveSignals();
    watchWorkspace(with.workspace);
    static_cast<void>(m_observer.startHelper()); // a failure is the helper error by now
    startPolling();
    m_recovery.resumeRecordingAfterUpdateIfNeeded();
}

AppModel::~AppModel() = default;

void AppModel::forwardSignals()
{
    connect(&m_state, &ModelState::settingsChanged, this, &AppModel::settingsChanged);
    connect(&m_state, &ModelState::draftSettingsChanged, this, &AppModel::draftSettingsChanged);
    connect(&m_state, &ModelState::statusChanged, this, &AppModel::statusChanged);
    connect(&m_state, &ModelState::statusChanged, this, &AppModel::announceRecording);
    connect(&m_state, &ModelState::helperErrorChanged, this, &AppModel::helperErrorChanged);
    connect(&m_permissions, &PermissionsArea::permissionsChanged, this, &AppModel::permissionsChanged);
    connect(&m_permissions, &PermissionsArea::dismissedRecommendedPermissionKindsChanged, this,
            &AppModel::dismissedRecommendedPermissionKindsChanged);
    connect(&m_recording, &RecordingControl::stoppingRecordingChanged, this, &AppModel::stoppingRecordingChanged);
    connect(&m_recording, &RecordingControl::stoppingRecordingChanged, this, &AppModel::announceRecording);
    connect(&m_recording, &RecordingControl::pendingRecordingRestartChanged, this,
            &AppModel::pendingRecordingRestartChanged);
    connect(&m_recording, &RecordingControl::startBegun, this, &AppModel::recordingUnderWayChanged);
    connect(&m_recording, &RecordingControl::endingBegun, this, &AppModel::recordingUnderWayChanged);
    connect(&m_recording, &RecordingControl::recordingStarted, this, &AppModel::recordingUnderWayChanged);
    connect(&m_recording, &RecordingControl::recordingEnded, this, &AppModel::recordingUnderWayChanged);
    connect(&m_recording, &RecordingControl::recordingStarted, this, &AppModel::recordingStarted);
    connect(&m_recording, &RecordingControl::recordingEnded, this, &AppModel::recordingEnded);
    connect(&m_recovery, &CaptureRecovery::stallTold, this, &AppModel::captureStalled);
    connect(&m_recording.captureNews(), &CaptureNews::observerStatusReceived, this, &AppModel::applyObserverStatus);
    connect(&m_byokInference, &ByokInference::byokModalActiveChanged, this, &AppModel::byokModalActiveChanged);
    connect(&m_byokInference, &ByokInference::byokModalActiveChanged, this, &AppModel::announcePopoverOverlay);
    connect(&m_nativeModals, &NativeModals::nativeModalActiveChanged, this, &AppModel::nativeModalActiveChanged);
    connect(&m_nativeModals, &NativeModals::nativeModalActiveChanged, this, &AppModel::announcePopoverOverlay);
}

void AppModel::forwardArchiveSignals()
{
    connect(&m_state, &ModelState::archiveMessageChanged, this, &AppModel::archiveMessageChanged);
    connect(&m_archive, &ArchiveArea::archiveWizardStepChanged, this, &AppModel::archiveWizardStepChanged);
    connect(&m_archive, &ArchiveArea::archiveWizardStepChanged, this, &AppModel::announcePopoverOverlay);
    connect(&m_archive, &ArchiveArea::archiveRecoveryKeyChanged, this, &AppModel::archiveRecoveryKeyChanged);
    connect(&m_archive, &ArchiveArea::archiveKeySavedConfirmedChanged, this,
            &AppModel::archiveKeySavedConfirmedChanged);
    connect(&m_archive, &ArchiveArea::archiveBusyChanged, this, &AppModel::archiveBusyChanged);
    connect(&m_archiveTarget, &ArchiveTargetArea::archiveTargetChanged, this, &AppModel::archiveTargetChanged);
    connect(&m_archiveTarget, &ArchiveTargetArea::archiveTargetDraftChanged, this,
            &AppModel::archiveTargetDraftChanged);
    connect(&m_archiveTarget, &ArchiveTargetArea::archiveTargetDraftChanged, this, &AppModel::announcePopoverOverlay);
    connect(&m_archiveTarget, &ArchiveTargetArea::archiveTargetBusyChanged, this, &AppModel::archiveTargetBusyChanged);
    connect(&m_export, &ExportArea::archiveExportCardChanged, this, &AppModel::archiveExportCardChanged);
    connect(&m_export, &ExportArea::archiveExportCardChanged, this, &AppModel::announcePopoverOverlay);
    connect(&m_export, &ExportArea::archiveExportRangeChanged, this, &AppModel::archiveExportRangeChanged);
    connect(&m_export, &ExportArea::archiveExportDestinationChanged, this, &AppModel::archiveExportDestinationChanged);
    connect(&m_export, &ExportArea::archiveExportEstimateChanged, this, &AppModel::archiveExportEstimateChanged);
    connect(&m_export, &ExportArea::archiveExportStatusChanged, this, &AppModel::archiveExportStatusChanged);
}

void AppModel::watchWorkspace(WorkspaceEvents &workspace)
{
    connect(&workspace, &WorkspaceEvents::lockedChanged, this, [this](bool locked) { m_recorder->setPaused(locked); });
    m_recorder->setPaused(workspace.isLocked());
    connect(&workspace, &WorkspaceEvents::willShutDown, this, [this](std::shared_ptr<SystemHold> hold) {
        m_shutdownHold = std::move(hold);
        quitBeforeShutdown();
    });
}

bool AppModel::isRecording() const
{
    return m_state.observerIsRunning() && !m_recording.stoppingRecording();
}

void AppModel::announceRecording()
{
    if (isRecording() == m_wasRecording)
        return;
    m_wasRecording = isRecording();
    Q_EMIT recordingChanged(m_wasRecording);
}

bool AppModel::popoverOverlayActive() const
{
    return archiveWizardStep() || archiveTargetDraft() || archiveExportCard() || byokModalActive() ||
           nativeModalActive();
}

void AppModel::announcePopoverOverlay()
{
    if (popoverOverlayActive() == m_wasPopoverOverlayActive)
        return;
    m_wasPopoverOverlayActive = popoverOverlayActive();
    Q_EMIT popoverOverlayActiveChanged();
}

void AppModel::startPolling()
{
    if (!m_quitting)
        m_pollTask.start([this](std::stop_token stop) { return poll(std::move(stop)); });
}

Task<> AppModel::poll(std::stop_token stop)
{
    do {
        co_await m_observer.refreshStatus(stop);
        if (stop.stop_requested())
            co_return;
        co_await m_permissions.refreshPermissions(stop);
        if (stop.stop_requested())
            co_return;
    } while (co_await m_clock.sleepFor(pollPause, stop));
}

void AppModel::applyObserverStatus(const ObserverStatus &status)
{
    const bool wasRunning = m_state.observerIsRunning();
    m_state.setStatus(status);
    if (wasRunning && !status.running && !m_recording.stoppingRecording())
        m_recording.observerStopped();
}

void AppModel::quit()
{
    if (std::exchange(m_quitting, true))
        return;
    // A poll that finds the child gone would start it again.
    m_pollTask.cancel();
    m_settingsEditing.close();
    m_tasks.spawn([this](std::stop_token stop) { return runQuit(std::move(stop)); });
}

Task<> AppModel::runQuit(std::stop_token stop)
{
    co_await m_recording.close(stop);
    if (stop.stop_requested())
        co_return;
    co_await finishQuit(std::move(stop));
}

Task<> AppModel::finishQuit(std::stop_token stop)
{
    co_await m_settingsEditing.finish(stop);
    if (stop.stop_requested())
        co_return;
    leave();
}

void AppModel::quitBeforeShutdown()
{
    if (m_hasLeft || m_quitLimit.isRunning())
        return;
    m_quitLimit.start([this](std::stop_token stop) { return limitQuit(std::move(stop)); });
    quit();
}

Task<> AppModel::limitQuit(std::stop_token stop)
{
    if (co_await m_clock.sleepFor(shutdownPatience, stop))
        abandonQuit();
}

void AppModel::abandonQuit()
{
    if (m_hasLeft)
        return;
    m_tasks.cancelAll();
    m_recording.abandonEnding();
    leave();
}

void AppModel::leave()
{
    m_hasLeft = true;
    m_quitLimit.cancel();
    m_observer.stopHelper();
    m_shutdownHold.reset();
    const auto terminate = m_terminate; // may destroy this object
    terminate();
}

Task<> AppModel::prepareForUpdateRelaunch(std::stop_token stop)
{
    if (!isRecordingUnderWay() && !stoppingRecording())
        co_return;
    m_pollTask.cancel(); // a poll that finds the child gone would start it again
    co_await m_recovery.prepareForUpdateRelaunch(std::move(stop));
}

QString AppModel::diagnosticSummary() const
{
    return m_recorder->diagnosticSummary();
}

void AppModel::restartHelper()
{
    if (!stoppingRecording())
        return m_observer.restartHelper();
    m_tasks.spawn([this](std::stop_token stop) {
        const auto restart = [this] {
            if (!m_quitting)
                m_observer.restartHelper();
        };
        return m_recording.betweenRecordings(restart, std::move(stop));
    });
}

std::optional<QString> AppModel::whyNoPicture() const
{
    return m_recorder->whyNoPicture();
}

void AppModel::refreshJournal()
{
    if (m_journalTask.isRunning())
        m_journalReadAgain = true;
    else
        m_journalTask.start([this](std::stop_token stop) { return readJournal(std::move(stop)); });
}

Task<> AppModel::readJournal(std::stop_token stop)
{
    do {
        m_journalReadAgain = false;
        auto days = co_await m_worker.run(
            stop, [folder = settings().outputDirectory] { return JournalReader(folder).readDays(journalDayLimit); });
        if (!days)
            co_return;
        if (*days != m_journalDays) {
            m_journalDays = std::move(*days);
            Q_EMIT journalDaysChanged();
        }
    } while (m_journalReadAgain);
}

void AppModel::refreshPermissions()
{
    m_tasks.spawn(
        // The scope keeps the closure. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
        [this](std::stop_token stop) -> Task<> { co_await m_permissions.refreshPermissions(std::move(stop)); });
}

void AppModel::requestPermission(AppPermissionKind kind)
{
    m_tasks.spawn(
        [this, kind](std::stop_token stop) { return m_permissions.requestPermission(kind, std::move(stop)); });
}

QString AppModel::recordButtonTitle() const
{
    return StatusTexts::recordButtonTitle(isRecording(), pendingRecordingRestart());
}

std::optional<QString> AppModel::recordingProviderIndicatorText() const
{
    return StatusTexts::recordingProviderIndicatorText(settings());
}

} // namespace ostrel
