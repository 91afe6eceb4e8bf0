#include "app/popover/ExportForm.h"

#include "model/AppModel.h"

#include <algorithm>

namespace ostrel {

ExportForm::ExportForm(AppModel &model) : m_model(model)
{
    connect(&model, &AppModel::archiveExportCardChanged, this, &ExportForm::archiveExportCardChanged);
    connect(&model, &AppModel::archiveExportRangeChanged, this, &ExportForm::rangeChanged);
    connect(&model, &AppModel::archiveExportDestinationChanged, this, &ExportForm::archiveExportDestinationChanged);
    connect(&model, &AppModel::archiveExportEstimateChanged, this, &ExportForm::archiveExportEstimateChanged);
    connect(&model, &AppModel::archiveExportStatusChanged, this, &ExportForm::archiveExportStatusChanged);
}

ExportForm::Card ExportForm::archiveExportCard() const
{
    const auto &card = m_model.archiveExportCard();
    return card ? Card(*card) : Closed;
}

QString ExportForm::archiveExportFrom() const
{
    return m_model.archiveExportFrom().toString(Qt::ISODate);
}

void ExportForm::setArchiveExportFrom(const QString &day)
{
    m_model.setArchiveExportFrom(QDate::fromString(day, Qt::ISODate));
    m_model.refreshArchiveExportEstimate();
}

QString ExportForm::archiveExportTo() const
{
    return m_model.archiveExportTo().toString(Qt::ISODate);
}

void ExportForm::setArchiveExportTo(const QString &day)
{
    m_model.setArchiveExportTo(QDate::fromString(day, Qt::ISODate));
    m_model.refreshArchiveExportEstimate();
}

QString ExportForm::archiveExportDestination() const
{
    return m_model.archiveExportDestination();
}

QString ExportForm::estimateText() const
{
    return m_model.archiveExportEstimateText();
}

bool ExportForm::estimateFailed() const
{
    return m_model.archiveExportEstimateFailed();
}

double ExportForm::progress() const
{
    const auto &status = m_model.archiveExportStatus();
    if (!status || status->total <= 0)
        return 0;
    return std::clamp(double(status->exported) / double(status->total), 0.0, 1.0);
}

QString ExportForm::progressText() const
{
    const auto &status = m_model.archiveExportStatus();
    return status ? tr("%1 of %2 clips").arg(status->exported).arg(status->total) : QString();
}

QString ExportForm::resultTitle() const
{
    if (isDone())
        return tr("Export complete");
    return hasFailed() ? tr("Export failed") : tr("Export cancelled");
}

QString ExportForm::resultText() const
{
    const auto &status = m_model.archiveExportStatus();
    if (!status)
        return {};
    if (hasFailed())
        return status->error && !status->error->isEmpty() ? *status->error : tr("Something went wrong.");
    if (!isDone())
        return {};
    const QString clips = tr("%1 clips").arg(status->exported);
    return status->skipped > 0 ? tr("%1, %2 skipped").arg(clips).arg(status->skipped) : clips;
}

void ExportForm::openArchiveExportCard()
{
    m_model.openArchiveExportCard();
}

void ExportForm::closeArchiveExportCard()
{
    m_model.closeArchiveExportCard();
}

void ExportForm::chooseArchiveExportDestination()
{
    m_model.chooseArchiveExportDestination();
}

void ExportForm::revealArchiveExportDestination()
{
    m_model.revealArchiveExportDestination();
}

void ExportForm::startArchiveExport()
{
    m_model.startArchiveExport();
}

void ExportForm::cancelArchiveExport()
{
    m_model.cancelArchiveExport();
}

bool ExportForm::hasState(const QString &state) const
{
    const auto &status = m_model.archiveExportStatus();
    return status && status->state == state;
}

} // namespace ostrel
