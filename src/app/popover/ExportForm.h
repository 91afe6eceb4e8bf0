#pragma once

#include "model/ExportArea.h"

#include <QDate>
#include <QObject>
#include <QString>
#include <QtQmlIntegration>

namespace ostrel {

class AppModel;

/// The card that exports footage. Main thread.
class ExportForm : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of PopoverModel")

    Q_PROPERTY(Card archiveExportCard READ archiveExportCard NOTIFY archiveExportCardChanged)
    /// The days of the range as "yyyy-MM-dd".
    Q_PROPERTY(QString archiveExportFrom READ archiveExportFrom WRITE setArchiveExportFrom NOTIFY rangeChanged)
    Q_PROPERTY(QString archiveExportTo READ archiveExportTo WRITE setArchiveExportTo NOTIFY rangeChanged)
    Q_PROPERTY(QString archiveExportDestination READ archiveExportDestination NOTIFY archiveExportDestinationChanged)
    Q_PROPERTY(QString estimateText READ estimateText NOTIFY archiveExportEstimateChanged)
    Q_PROPERTY(bool estimateFailed READ estimateFailed NOTIFY archiveExportEstimateChanged)
    /// From 0 to 1.
    Q_PROPERTY(double progress READ progress NOTIFY archiveExportStatusChanged)
    /// How many clips are done, of how many: "348 of 600 clips".
    Q_PROPERTY(QString progressText READ progressText NOTIFY archiveExportStatusChanged)
    Q_PROPERTY(QString resultTitle READ resultTitle NOTIFY archiveExportStatusChanged)
    Q_PROPERTY(QString resultText READ resultText NOTIFY archiveExportStatusChanged)
    /// Whether it ended well, so that there is something to be shown.
    Q_PROPERTY(bool isDone READ isDone NOTIFY archiveExportStatusChanged)
    Q_PROPERTY(bool hasFailed READ hasFailed NOTIFY archiveExportStatusChanged)

public:
    /// The page of the card, or that it is closed.
    enum Card {
        Closed = -1,
        Configure = int(ArchiveExportCard::configure),
        Running = int(ArchiveExportCard::running),
        Finished = int(ArchiveExportCard::finished)
    };
    Q_ENUM(Card)

    /// The model outlives this object.
    explicit ExportForm(AppModel &model);

    Card archiveExportCard() const;
    QString archiveExportFrom() const;
    void setArchiveExportFrom(const QString &day);
    QString archiveExportTo() const;
    void setArchiveExportTo(const QString &day);
    QString archiveExportDestination() const;
    QString estimateText() const;
    bool estimateFailed() const;
    double progress() const;
    QString progressText() const;
    QString resultTitle() const;
    QString resultText() const;
    bool isDone() const { return hasState(QStringLiteral("done")); }
    bool hasFailed() const { return hasState(QStringLiteral("failed")); }

    Q_INVOKABLE void openArchiveExportCard();
    Q_INVOKABLE void closeArchiveExportCard();
    Q_INVOKABLE void chooseArchiveExportDestination();
    Q_INVOKABLE void revealArchiveExportDestination();
    Q_INVOKABLE void startArchiveExport();
    Q_INVOKABLE void cancelArchiveExport();

Q_SIGNALS:
    void archiveExportCardChanged();
    void rangeChanged();
    void archiveExportDestinationChanged();
    void archiveExportEstimateChanged();
    void archiveExportStatusChanged();

private:
    bool hasState(const QString &state) const;

    AppModel &m_model;
};

} // namespace ostrel
