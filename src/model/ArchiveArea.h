#pragma once

#include "base/Error.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "base/TaskSlot.h"
#include "observer/WireRecords.h"

#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

namespace ostrel {

class DialogHost;
class LocalObserverAPI;
class ModelState;
class NativeModals;
class ObserverControl;
class SerialQueue;

/// The pages of the wizard that turns the archive on, in order.
enum class ArchiveWizardStep { intro, saveKey, confirm };

/// The cloud archive as its user handles it: the wizard that turns it on, pausing, recovering a vault with its key. The
/// observer does the work and is the authority for what there is; this mirrors it. Main thread, which is never blocked:
/// operations return at once, and what comes of them shows in the state, its signals and `ModelState::archiveMessage`.
///
/// One request at a time: while `archiveBusy`, every operation that would send one, or leave the page that one is for,
/// does nothing. Only cancelling the wizard is possible at any time; the request is then seen through without it.
///
/// The recovery key exists here from the answer to "prepare" until the wizard closes, and in a dialog's answer until
/// the observer has it. It is neither logged nor stored, except where the user wants it.
class ArchiveArea : public QObject
{
    Q_OBJECT

public:
    struct Dependencies {
        ModelState &state;
        ObserverControl &observer;
        NativeModals &modals;
        DialogHost &dialogs;
        SerialQueue &worker; ///< writes the key file
    };

    /// What the dependencies name outlives this object.
    explicit ArchiveArea(Dependencies dependencies);
    ~ArchiveArea() override;

    /// None while the wizard is closed.
    const std::optional<ArchiveWizardStep> &archiveWizardStep() const { return m_step; }
    const std::optional<QString> &archiveRecoveryKey() const { return m_recoveryKey; }
    /// The check box of the last page.
    bool archiveKeySavedConfirmed() const { return m_keySavedConfirmed; }
    void setArchiveKeySavedConfirmed(bool confirmed);
    /// A request is in flight.
    bool archiveBusy() const { return m_busy; }

    void beginArchiveWizard();
    /// Closes the wizard and forgets the key.
    void cancelArchiveWizard();
    /// From `intro`: has the observer prepare a vault, and shows its key.
    void archiveWizardContinue();
    /// From `saveKey` to `confirm`, and back.
    void archiveWizardNext();
    void archiveWizardBack();
    /// From `confirm`, when it is confirmed that the key is kept.
    void archiveWizardTurnOn();

    void copyArchiveRecoveryKey();
    /// Asks where, and writes the key there for the user alone.
    void downloadArchiveRecoveryKey();

    /// Pauses uploads.
    void disableArchive();
    /// Goes on with the uploads of a vault that was paused. Without one it does nothing: a new vault needs the wizard,
    /// which shows its key.
    void resumeArchive();
    /// Asks for a key, and recovers with it.
    void recoverArchiveWithKey();
    void recoverArchive(const QString &recoveryKey);

    /// Asks the observer what there is. A failure says and changes nothing.
    void refreshArchiveStatus();
    /// The same, to be awaited; stop it before this object goes.
    /// @return what the observer said, or why it could not be asked
    Task<Result<ArchiveStatus>> fetchArchiveStatus(std::stop_token stop);

Q_SIGNALS:
    void archiveWizardStepChanged();
    void archiveRecoveryKeyChanged();
    void archiveKeySavedConfirmedChanged();
    void archiveBusyChanged();

private:
    using Request = std::function<Task<Result<ArchiveStatus>>(std::shared_ptr<LocalObserverAPI>, std::stop_token)>;
    using Adopt = std::function<void(const ArchiveStatus &)>;

    void run(Request request, Adopt adopt);
    Task<> runFlow(Request request, Adopt adopt, std::stop_token stop);
    Task<> saveKeyFile(std::stop_token stop);
    Task<> askForKey(std::stop_token stop);
    void applyArchiveStatus(const ArchiveStatus &status);

    void setStep(std::optional<ArchiveWizardStep> step);
    void setRecoveryKey(const std::optional<QString> &key);
    void setBusy(bool busy);

    const Dependencies m_with;
    std::optional<ArchiveWizardStep> m_step;
    std::optional<QString> m_recoveryKey;
    bool m_keySavedConfirmed = false;
    bool m_busy = false;
    /// How often a request that may change the archive has begun or ended; tells which statuses are out of date.
    qint64 m_changeEvents = 0;
    TaskSlot m_dialog; ///< one at a time
    TaskSlot m_refresh;
    TaskScope m_tasks;
};

} // namespace ostrel
