#pragma once

#include "base/Error.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "base/TaskSlot.h"
#include "observer/WireRecords.h"

#include <QDate>
#include <QObject>
#include <QString>
#include <optional>
#include <stop_token>

namespace ostrel {

class Clock;
class DialogHost;
class ModelState;
class NativeModals;
class ObserverControl;
class SerialQueue;

/// The pages of the card that exports footage, in order.
enum class ArchiveExportCard { configure, running, finished };

/// Exports footage from the archive into a folder: a range of days and a destination, what that comes to, the progress,
/// the result. The observer exports; this asks once a second how far it is, while the card is open. Main thread, which
/// is never blocked: operations return at once, and what comes of them shows in the state and its signals; what can't
/// be begun is told by `ModelState::archiveMessage`.
class ExportArea : public QObject
{
    Q_OBJECT

public:
    struct Dependencies {
        Clock &clock;
        ModelState &state;
        ObserverControl &observer;
        NativeModals &modals;
        DialogHost &dialogs;
        SerialQueue &worker; ///< reads the settings file
    };

    /// What the dependencies name outlives this object.
    explicit ExportArea(Dependencies dependencies);
    ~ExportArea() override;

    /// None while the card is closed.
    const std::optional<ArchiveExportCard> &archiveExportCard() const { return m_card; }

    /// The first and the last day of the range, both included, in local time. Until they are chosen, seven days up to
    /// the one on which the card was opened last. An invalid date changes nothing.
    QDate archiveExportFrom() const { return m_from; }
    QDate archiveExportTo() const { return m_to; }
    void setArchiveExportFrom(QDate date);
    void setArchiveExportTo(QDate date);
    /// May begin with "~".
    const QString &archiveExportDestination() const { return m_destination; }
    void setArchiveExportDestination(const QString &path);

    /// Of the last range that was estimated; none while it is being estimated, or when it could not be.
    const std::optional<ArchiveExportEstimate> &archiveExportEstimate() const { return m_estimate; }
    bool archiveExportEstimateFailed() const { return m_estimateFailed; }
    /// The estimate in words, whatever has become of it.
    QString archiveExportEstimateText() const;
    /// The last answer about the progress.
    const std::optional<ArchiveExportStatus> &archiveExportStatus() const { return m_status; }

    /// Opens the card where there is a vault, and takes up an export that runs already.
    void openArchiveExportCard();
    /// An export under way goes on without the card.
    void closeArchiveExportCard();
    /// For the range as it is now; whoever changes it calls this.
    void refreshArchiveExportEstimate();
    void chooseArchiveExportDestination();
    void revealArchiveExportDestination();
    /// From `configure`, once.
    void startArchiveExport();
    /// Asks the observer to end the export. The card follows when the observer says that it has.
    void cancelArchiveExport();

    /// The form in which a day is told to the observer.
    static QString exportDateString(QDate date);

Q_SIGNALS:
    void archiveExportCardChanged();
    void archiveExportRangeChanged();
    void archiveExportDestinationChanged();
    void archiveExportEstimateChanged();
    void archiveExportStatusChanged();
    /// The progress could not be asked for, so many times in a row.
    void archiveExportPollFailed(int times, const QString &words);

private:
    Task<> open(std::stop_token stop);
    Task<> estimate(QString from, QString to, std::stop_token stop);
    Task<> chooseDestination(std::stop_token stop);
    Task<> start(QString destination, QString from, QString to, std::stop_token stop);
    Task<> cancel(std::stop_token stop);
    void startArchiveExportPolling();
    Task<> poll(std::stop_token stop);
    /// @return whether there is more to come
    bool take(const ArchiveExportStatus &status);

    QDate today() const;
    void useDefaultRange();
    void setRange(QDate from, QDate to);
    void setCard(std::optional<ArchiveExportCard> card);
    void setEstimate(const std::optional<ArchiveExportEstimate> &estimate, bool failed);
    void setStatus(const std::optional<ArchiveExportStatus> &status);

    const Dependencies m_with;
    std::optional<ArchiveExportCard> m_card;
    QDate m_from;
    QDate m_to;
    bool m_rangeChosen = false;
    QString m_destination;
    std::optional<ArchiveExportEstimate> m_estimate;
    bool m_estimateFailed = false;
    std::optional<ArchiveExportStatus> m_status;
    TaskSlot m_openTask;
    TaskSlot m_estimateTask;
    TaskSlot m_dialog; ///< one at a time
    TaskSlot m_startTask;
    TaskSlot m_archiveExportPollTask;
    TaskScope m_tasks;
};

} // namespace ostrel
