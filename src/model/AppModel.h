#pragma once

#include "base/Task.h"
#include "base/TaskScope.h"
#include "base/TaskSlot.h"
#include "journal/JournalRecords.h"
#include "model/ArchiveArea.h"
#include "model/ArchiveTargetArea.h"
#include "model/ByokInference.h"
#include "model/CaptureRecovery.h"
#include "model/ExportArea.h"
#include "model/ModelState.h"
#include "model/NativeModals.h"
#include "model/ObserverControl.h"
#include "model/Permissions.h"
#include "model/PermissionsArea.h"
#include "model/RecordingControl.h"
#include "model/SettingsDialogs.h"
#include "model/SettingsEditing.h"
#include "model/StatusTexts.h"

#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

class ScreenCaptureRecorder;
class SystemHold;
class WorkspaceEvents;

/// The one object that a user interface binds to, be it a window or the command line. It starts the observer and keeps
/// it running, polls its status every 1.5 seconds, and starts and stops recordings. Main thread, which it never blocks:
/// operations only start; what comes of them shows in the state and its signals.
///
/// How a caller without a window follows a recording: `toggleRecording()` ends in exactly one `recordingEnded`, before
/// which `recordingStarted` tells that both sides run. Every reason but RecordingEnd::Requested is a failure, and
/// except for ObserverStopped `helperError` then holds its text. What went wrong at construction (no observer folder,
/// no node) makes the start fail at once with the same text, so there is no need to look for it before: a helper error
/// that is there early may as well be the harmless "Starting recording service…".
class AppModel : public QObject
{
    Q_OBJECT

public:
    /// What it is built from. References outlive the model.
    struct Dependencies {
        Clock &clock;
        ObserverSettings settings; ///< as loaded
        QString localAPIToken;     ///< see localApiTokenOrFallback
        std::optional<QString> repoRoot;
        ProcessLauncher &launcher;
        HttpTransport &transport;
        SerialQueue &observerQueue; ///< builds and decodes large bodies of the observer's calls
        SerialQueue &worker;        ///< permission checks, journal: whatever may hang on a disk or a daemon
        SerialQueue &requestQueue;  ///< requests of permissions, which wait for the user
        std::unique_ptr<ScreenCaptureRecorder> recorder;
        ScreenCaptureAccess &screenCapture; ///< used on `worker`, its request on `requestQueue`
        AccessibilityAccess &accessibility; ///< used on `worker`
        UserDefaults &defaults;
        SystemSettingsOpener &systemSettings;
        DialogHost &dialogs;
        WorkspaceEvents &workspace;
        SettingsStore &settingsStore;    ///< used on `settingsQueue`
        SerialQueue &settingsQueue;      ///< saves settings and secrets, in the order of asking
        std::function<void()> terminate; ///< ends the program; called once, at the end of `quit`
    };

    static constexpr int journalDayLimit = 7;

    /// Takes the first permissions snapshot (waiting for the worker), starts the observer and the polling, and resumes
    /// the recording that an update has interrupted.
    explicit AppModel(Dependencies dependencies);
    /// Drops what is under way. Await the end of `quit` where nothing must be lost.
    ~AppModel() override;

    // What the observer and the settings say.
    const ObserverSettings &settings() const { return m_state.settings(); }
    const ObserverSettings &draftSettings() const { return m_state.draftSettings(); }
    const std::optional<ObserverStatus> &status() const { return m_state.status(); }
    const std::optional<QString> &helperError() const { return m_state.helperError(); }

    // Recording.
    bool isRecording() const;
    /// Also while it is being started.
    bool isRecordingUnderWay() const { return m_recording.isUnderWay(); }
    bool stoppingRecording() const { return m_recording.stoppingRecording(); }
    bool pendingRecordingRestart() const { return m_recording.pendingRecordingRestart(); }
    /// The record button: see RecordingControl::toggleRecording.
    void toggleRecording() { m_recording.toggleRecording(); }
    void stopRecording() { m_recording.stopRecording(); }
    /// Ends the recording with its final flush, asks the observer to stop, waits for settings that are being saved,
    /// ends the observer's process, then terminates the program. Whatever fails on the way, it goes on. A second call
    /// changes nothing.
    void quit();
    static constexpr std::chrono::seconds shutdownPatience{4};
    /// As `quit`, but gives up after `shutdownPatience` what has not come to its end by then: the system, or the
    /// session, which is shutting down, waits for 5 seconds. Also hurries a quit under way.
    void quitBeforeShutdown();
    /// Gives up what a quit under way still waits for, at once: for whoever measures the time instead.
    void abandonQuit();
    /// For after `quit`, when the observer had ended by itself: see ObserverControl::writeLeftovers.
    Task<bool> writeLeftovers(std::stop_token stop) { return m_observer.writeLeftovers(std::move(stop)); }
    /// What has to be done before the program quits to be replaced by a newer one: see
    /// CaptureRecovery::prepareForUpdateRelaunch. The polling ends with the recording.
    Task<> prepareForUpdateRelaunch(std::stop_token stop);
    const CaptureRecoveryPolicy &recoveryPolicy() const { return m_recovery.recoveryPolicy(); }
    /// The recorder's counters since capture was started last, one line.
    QString diagnosticSummary() const;
    /// See ScreenCaptureRecorder::whyNoPicture.
    std::optional<QString> whyNoPicture() const;

    // The settings: see SettingsEditing and SettingsDialogs.
    void setDraftSettings(const ObserverSettings &settings) { m_state.setDraftSettings(settings); }
    Task<bool> saveSettings(ObserverSettings next) { return m_settingsEditing.saveSettings(std::move(next)); }
    Task<std::expected<SavedSettings, SettingFailure>> changeSetting(QString key, QString value)
    {
        return m_settingsEditing.changeSetting(std::move(key), std::move(value));
    }
    Task<bool> prepareToLeaveSettings() { return m_settingsDialogs.prepareToLeaveSettings(); }
    void chooseOutputDirectory() { m_settingsDialogs.chooseOutputDirectory(); }
    void revealOutputDirectory() { m_settingsDialogs.revealOutputDirectory(); }

    // Where pictures are analysed: see ByokInference.
    bool byokModalActive() const { return m_byokInference.byokModalActive(); }
    void addByokInferenceKey() { m_byokInference.addByokInferenceKey(); }
    Task<bool> confirmUseOstrelInferenceIfNeeded() { return m_byokInference.confirmUseOstrelInferenceIfNeeded(); }
    void useOstrelInference() { m_byokInference.useOstrelInference(); }

    // The cloud archive: see ArchiveArea.
    const std::optional<ArchiveWizardStep> &archiveWizardStep() const { return m_archive.archiveWizardStep(); }
    const std::optional<QString> &archiveRecoveryKey() const { return m_archive.archiveRecoveryKey(); }
    bool archiveKeySavedConfirmed() const { return m_archive.archiveKeySavedConfirmed(); }
    void setArchiveKeySavedConfirmed(bool confirmed) { m_archive.setArchiveKeySavedConfirmed(confirmed); }
    bool archiveBusy() const { return m_archive.archiveBusy(); }
    const std::optional<QString> &archiveMessage() const { return m_state.archiveMessage(); }
    bool archiveMessageIsError() const { return m_state.archiveMessageIsError(); }
    void beginArchiveWizard() { m_archive.beginArchiveWizard(); }
    void cancelArchiveWizard() { m_archive.cancelArchiveWizard(); }
    void archiveWizardContinue() { m_archive.archiveWizardContinue(); }
    void archiveWizardNext() { m_archive.archiveWizardNext(); }
    void archiveWizardBack() { m_archive.archiveWizardBack(); }
    void archiveWizardTurnOn() { m_archive.archiveWizardTurnOn(); }
    void copyArchiveRecoveryKey() { m_archive.copyArchiveRecoveryKey(); }
    void downloadArchiveRecoveryKey() { m_archive.downloadArchiveRecoveryKey(); }
    void disableArchive() { m_archive.disableArchive(); }
    void resumeArchive() { m_archive.resumeArchive(); }
    void recoverArchive(const QString &recoveryKey) { m_archive.recoverArchive(recoveryKey); }
    void recoverArchiveWithKey() { m_archive.recoverArchiveWithKey(); }
    void refreshArchiveStatus() { m_archive.refreshArchiveStatus(); }

    // Where the archive lies: see ArchiveTargetArea.
    bool archiveTargetOffered() const { return m_archiveTarget.archiveTargetOffered(); }
    const std::optional<ArchiveTarget> &archiveTarget() const { return m_archiveTarget.archiveTarget(); }
    const std::optional<ArchiveTarget> &archiveTargetDraft() const { return m_archiveTarget.archiveTargetDraft(); }
    void setArchiveTargetDraft(const ArchiveTarget &draft) { m_archiveTarget.setArchiveTargetDraft(draft); }
    bool archiveTargetBusy() const { return m_archiveTarget.archiveTargetBusy(); }
    bool archiveTargetSecretIsKept() const { return m_archiveTarget.archiveTargetSecretIsKept(); }
    void refreshArchiveTarget() { m_archiveTarget.refreshArchiveTarget(); }
    void openArchiveTargetCard() { m_archiveTarget.openArchiveTargetCard(); }
    void closeArchiveTargetCard() { m_archiveTarget.closeArchiveTargetCard(); }
    void chooseArchiveTargetFolder() { m_archiveTarget.chooseArchiveTargetFolder(); }
    void saveArchiveTarget() { m_archiveTarget.saveArchiveTarget(); }

    // Export from the archive: see ExportArea.
    const std::optional<ArchiveExportCard> &archiveExportCard() const { return m_export.archiveExportCard(); }
    QDate archiveExportFrom() const { return m_export.archiveExportFrom(); }
    QDate archiveExportTo() const { return m_export.archiveExportTo(); }
    void setArchiveExportFrom(QDate date) { m_export.setArchiveExportFrom(date); }
    void setArchiveExportTo(QDate date) { m_export.setArchiveExportTo(date); }
    const QString &archiveExportDestination() const { return m_export.archiveExportDestination(); }
    const std::optional<ArchiveExportEstimate> &archiveExportEstimate() const
    {
        return m_export.archiveExportEstimate();
    }
    bool archiveExportEstimateFailed() const { return m_export.archiveExportEstimateFailed(); }
    QString archiveExportEstimateText() const { return m_export.archiveExportEstimateText(); }
    const std::optional<ArchiveExportStatus> &archiveExportStatus() const { return m_export.archiveExportStatus(); }
    void openArchiveExportCard() { m_export.openArchiveExportCard(); }
    void closeArchiveExportCard() { m_export.closeArchiveExportCard(); }
    void refreshArchiveExportEstimate() { m_export.refreshArchiveExportEstimate(); }
    void chooseArchiveExportDestination() { m_export.chooseArchiveExportDestination(); }
    void revealArchiveExportDestination() { m_export.revealArchiveExportDestination(); }
    void startArchiveExport() { m_export.startArchiveExport(); }
    void cancelArchiveExport() { m_export.cancelArchiveExport(); }

    // Dialogs.
    bool nativeModalActive() const { return m_nativeModals.nativeModalActive(); }
    /// Whether something lies over the popover, or has just closed, so that a click outside must not close it.
    bool popoverOverlayActive() const;

    // The observer's process.
    void startHelper() { static_cast<void>(m_observer.startHelper()); }
    /// See ObserverControl::restartHelper. Waits for a stop under way, whose last batch the observer is still to take.
    void restartHelper();

    // The journal.
    const QList<JournalDay> &journalDays() const { return m_journalDays; }
    /// Reads the last seven days anew. Calls during a reading are answered by one more after it.
    void refreshJournal();

    // Permissions.
    const PermissionsSnapshot &permissions() const { return m_permissions.permissions(); }
    const QSet<AppPermissionKind> &dismissedRecommendedPermissionKinds() const
    {
        return m_permissions.dismissedRecommendedPermissionKinds();
    }
    QList<PermissionPromptItem> permissionPromptItems() const { return m_permissions.permissionPromptItems(); }
    bool shouldShowPermissionsGate() const { return m_permissions.shouldShowPermissionsGate(); }
    bool canContinuePastPermissions() const { return m_permissions.canContinuePastPermissions(); }
    void continueWithoutRecommendedPermissions() { m_permissions.continueWithoutRecommendedPermissions(); }
    void refreshPermissions();
    /// The button of a row.
    void requestPermission(AppPermissionKind kind);
    void requestAccessibilityPermission() { requestPermission(AppPermissionKind::recordingContext); }

    // Texts derived from the state: see StatusTexts.
    QString recordButtonTitle() const;
    std::optional<QString> visibleHelperError() const { return StatusTexts::visibleHelperError(helperError()); }
    std::optional<QString> analysisBackfillNotice() const { return StatusTexts::analysisBackfillNotice(status()); }
    QString recorderSubtext() const { return subtext().text; }
    bool recorderSubtextIsError() const { return subtext().isError(); }
    bool recorderSubtextIsBackfillNotice() const { return subtext().isBackfillNotice(); }
    std::optional<QString> recordingProviderIndicatorText() const;
    /// Of the working copy of the settings.
    QString byokInferenceStatusText() const { return StatusTexts::byokInferenceStatusText(draftSettings()); }
    QString byokInferenceDetailText() const { return StatusTexts::byokInferenceDetailText(draftSettings()); }

Q_SIGNALS:
    void settingsChanged();
    void draftSettingsChanged();
    void statusChanged();
    void helperErrorChanged();
    void stoppingRecordingChanged();
    void pendingRecordingRestartChanged();
    void journalDaysChanged();
    void permissionsChanged();
    void dismissedRecommendedPermissionKindsChanged();
    void byokModalActiveChanged();
    void archiveWizardStepChanged();
    void archiveRecoveryKeyChanged();
    void archiveKeySavedConfirmedChanged();
    void archiveBusyChanged();
    void archiveMessageChanged();
    void archiveTargetChanged();
    void archiveTargetDraftChanged();
    void archiveTargetBusyChanged();
    void archiveExportCardChanged();
    void archiveExportRangeChanged();
    void archiveExportDestinationChanged();
    void archiveExportEstimateChanged();
    void archiveExportStatusChanged();
    void nativeModalActiveChanged();
    void popoverOverlayActiveChanged();
    /// `isRecording` has changed.
    void recordingChanged(bool recording);
    /// What `isRecordingUnderWay` says may have changed.
    void recordingUnderWayChanged();
    void recordingStarted();
    /// Capture of the recording has stalled, and starting it again has not helped so far, or the screen sends no
    /// pictures; also the helper error.
    void captureStalled(const QString &message);
    void recordingEnded(ostrel::RecordingEnd reason);

private:
    void forwardSignals();
    void forwardArchiveSignals();
    void announceRecording();
    void announcePopoverOverlay();
    void watchWorkspace(WorkspaceEvents &workspace);
    void startPolling();
    Task<> poll(std::stop_token stop);
    void applyObserverStatus(const ObserverStatus &status);
    Task<> readJournal(std::stop_token stop);
    Task<> runQuit(std::stop_token stop);
    Task<> finishQuit(std::stop_token stop);
    Task<> limitQuit(std::stop_token stop);
    void leave();
    RecorderSubtext subtext() const { return StatusTexts::recorderSubtext(helperError(), status(), settings()); }

    Clock &m_clock;
    SerialQueue &m_worker;
    const std::function<void()> m_terminate;
    ModelState m_state;
    ObserverControl m_observer;
    PermissionsArea m_permissions;
    const std::unique_ptr<ScreenCaptureRecorder> m_recorder;
    RecordingControl m_recording;
    CaptureRecovery m_recovery;
    NativeModals m_nativeModals;
    SettingsEditing m_settingsEditing;
    SettingsDialogs m_settingsDialogs;
    ByokInference m_byokInference;
    ArchiveArea m_archive;
    ArchiveTargetArea m_archiveTarget;
    ExportArea m_export;
    QList<JournalDay> m_journalDays;
    bool m_wasRecording = false;
    bool m_wasPopoverOverlayActive = false;
    bool m_quitting = false;
    bool m_hasLeft = false;
    bool m_journalReadAgain = false;
    std::shared_ptr<SystemHold> m_shutdownHold; ///< from the announcement of a shutdown until we leave
    TaskSlot m_journalTask;
    TaskSlot m_pollTask;
    TaskSlot m_quitLimit;
    TaskScope m_tasks;
};

} // namespace ostrel
