#include "app/popover/ArchiveTargetForm.h"

#include "model/AppModel.h"

namespace ostrel {

ArchiveTargetForm::ArchiveTargetForm(AppModel &model) : m_model(model)
{
    connect(&model, &AppModel::archiveTargetChanged, this, &ArchiveTargetForm::placeChanged);
    connect(&model, &AppModel::archiveTargetDraftChanged, this, &ArchiveTargetForm::draftChanged);
    connect(&model, &AppModel::archiveTargetBusyChanged, this, &ArchiveTargetForm::busyChanged);
}

bool ArchiveTargetForm::isOffered() const
{
    return m_model.archiveTargetOffered();
}

QString ArchiveTargetForm::place() const
{
    const auto &target = m_model.archiveTarget();
    return target ? archivePlaceText(*target) : QString();
}

bool ArchiveTargetForm::isOpen() const
{
    return m_model.archiveTargetDraft().has_value();
}

bool ArchiveTargetForm::isBusy() const
{
    return m_model.archiveTargetBusy();
}

bool ArchiveTargetForm::secretIsKept() const
{
    return m_model.archiveTargetSecretIsKept();
}

void ArchiveTargetForm::refreshArchiveTarget()
{
    m_model.refreshArchiveTarget();
}

void ArchiveTargetForm::openArchiveTargetCard()
{
    m_model.openArchiveTargetCard();
}

void ArchiveTargetForm::closeArchiveTargetCard()
{
    m_model.closeArchiveTargetCard();
}

void ArchiveTargetForm::chooseArchiveTargetFolder()
{
    m_model.chooseArchiveTargetFolder();
}

void ArchiveTargetForm::saveArchiveTarget()
{
    m_model.saveArchiveTarget();
}

ArchiveTarget ArchiveTargetForm::draft() const
{
    return m_model.archiveTargetDraft().value_or(ArchiveTarget());
}

void ArchiveTargetForm::take(const ArchiveTarget &changed)
{
    m_model.setArchiveTargetDraft(changed);
}

} // namespace ostrel
