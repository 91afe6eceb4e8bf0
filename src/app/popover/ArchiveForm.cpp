#include "app/popover/ArchiveForm.h"

#include "model/AppModel.h"

namespace ostrel {

ArchiveForm::ArchiveForm(AppModel &model) : m_model(model)
{
    connect(&model, &AppModel::archiveWizardStepChanged, this, &ArchiveForm::archiveWizardStepChanged);
    connect(&model, &AppModel::archiveRecoveryKeyChanged, this, &ArchiveForm::archiveRecoveryKeyChanged);
    connect(&model, &AppModel::archiveKeySavedConfirmedChanged, this, &ArchiveForm::archiveKeySavedConfirmedChanged);
    connect(&model, &AppModel::archiveBusyChanged, this, &ArchiveForm::archiveBusyChanged);
    connect(&model, &AppModel::archiveMessageChanged, this, &ArchiveForm::archiveMessageChanged);
    connect(&model, &AppModel::settingsChanged, this, &ArchiveForm::archiveChanged);
}

ArchiveForm::Step ArchiveForm::archiveWizardStep() const
{
    const auto &step = m_model.archiveWizardStep();
    return step ? Step(*step) : Closed;
}

QString ArchiveForm::archiveRecoveryKey() const
{
    return m_model.archiveRecoveryKey().value_or(QString());
}

bool ArchiveForm::archiveKeySavedConfirmed() const
{
    return m_model.archiveKeySavedConfirmed();
}

void ArchiveForm::setArchiveKeySavedConfirmed(bool confirmed)
{
    m_model.setArchiveKeySavedConfirmed(confirmed);
}

bool ArchiveForm::archiveBusy() const
{
    return m_model.archiveBusy();
}

QString ArchiveForm::archiveMessage() const
{
    return m_model.archiveMessage().value_or(QString());
}

bool ArchiveForm::archiveMessageIsError() const
{
    return m_model.archiveMessageIsError();
}

bool ArchiveForm::archiveEnabled() const
{
    return m_model.settings().archiveEnabled;
}

bool ArchiveForm::hasVault() const
{
    return !m_model.settings().archiveVaultId.isEmpty();
}

void ArchiveForm::beginArchiveWizard()
{
    m_model.beginArchiveWizard();
}

void ArchiveForm::cancelArchiveWizard()
{
    m_model.cancelArchiveWizard();
}

void ArchiveForm::archiveWizardContinue()
{
    m_model.archiveWizardContinue();
}

void ArchiveForm::archiveWizardNext()
{
    m_model.archiveWizardNext();
}

void ArchiveForm::archiveWizardBack()
{
    m_model.archiveWizardBack();
}

void ArchiveForm::archiveWizardTurnOn()
{
    m_model.archiveWizardTurnOn();
}

void ArchiveForm::copyArchiveRecoveryKey()
{
    m_model.copyArchiveRecoveryKey();
}

void ArchiveForm::downloadArchiveRecoveryKey()
{
    m_model.downloadArchiveRecoveryKey();
}

void ArchiveForm::disableArchive()
{
    m_model.disableArchive();
}

void ArchiveForm::resumeArchive()
{
    m_model.resumeArchive();
}

void ArchiveForm::recoverArchiveWithKey()
{
    m_model.recoverArchiveWithKey();
}

void ArchiveForm::refreshArchiveStatus()
{
    m_model.refreshArchiveStatus();
}

} // namespace ostrel
