#pragma once

#include "model/ArchiveArea.h"

#include <QObject>
#include <QString>
#include <QtQmlIntegration>

namespace ostrel {

class AppModel;

/// The archive's part of the settings screen, and the wizard. Main thread.
class ArchiveForm : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of PopoverModel")

    Q_PROPERTY(Step archiveWizardStep READ archiveWizardStep NOTIFY archiveWizardStepChanged)
    Q_PROPERTY(QString archiveRecoveryKey READ archiveRecoveryKey NOTIFY archiveRecoveryKeyChanged)
    Q_PROPERTY(bool archiveKeySavedConfirmed READ archiveKeySavedConfirmed WRITE setArchiveKeySavedConfirmed NOTIFY
                   archiveKeySavedConfirmedChanged)
    Q_PROPERTY(bool archiveBusy READ archiveBusy NOTIFY archiveBusyChanged)
    Q_PROPERTY(QString archiveMessage READ archiveMessage NOTIFY archiveMessageChanged)
    Q_PROPERTY(bool archiveMessageIsError READ archiveMessageIsError NOTIFY archiveMessageChanged)
    Q_PROPERTY(bool archiveEnabled READ archiveEnabled NOTIFY archiveChanged)
    /// Whether there is a vault, be it in use or not.
    Q_PROPERTY(bool hasVault READ hasVault NOTIFY archiveChanged)

public:
    /// The page of the wizard, or that it is closed.
    enum Step {
        Closed = -1,
        Intro = int(ArchiveWizardStep::intro),
        SaveKey = int(ArchiveWizardStep::saveKey),
        Confirm = int(ArchiveWizardStep::confirm)
    };
    Q_ENUM(Step)

    /// The model outlives this object.
    explicit ArchiveForm(AppModel &model);

    Step archiveWizardStep() const;
    QString archiveRecoveryKey() const;
    bool archiveKeySavedConfirmed() const;
    void setArchiveKeySavedConfirmed(bool confirmed);
    bool archiveBusy() const;
    QString archiveMessage() const;
    bool archiveMessageIsError() const;
    bool archiveEnabled() const;
    bool hasVault() const;

    Q_INVOKABLE void beginArchiveWizard();
    Q_INVOKABLE void cancelArchiveWizard();
    Q_INVOKABLE void archiveWizardContinue();
    Q_INVOKABLE void archiveWizardNext();
    Q_INVOKABLE void archiveWizardBack();
    Q_INVOKABLE void archiveWizardTurnOn();
    Q_INVOKABLE void copyArchiveRecoveryKey();
    Q_INVOKABLE void downloadArchiveRecoveryKey();
    Q_INVOKABLE void disableArchive();
    Q_INVOKABLE void resumeArchive();
    Q_INVOKABLE void recoverArchiveWithKey();
    Q_INVOKABLE void refreshArchiveStatus();

Q_SIGNALS:
    void archiveWizardStepChanged();
    void archiveRecoveryKeyChanged();
    void archiveKeySavedConfirmedChanged();
    void archiveBusyChanged();
    void archiveMessageChanged();
    void archiveChanged();

private:
    AppModel &m_model;
};

} // namespace ostrel
