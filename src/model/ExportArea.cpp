#include "model/ExportArea.h"

#include "base/ByteCount.h"
#include "base/Clock.h"
#include "base/Paths.h"
#include "base/SerialQueue.h"
#include "model/DialogHost.h"
#include "model/ModelState.h"
#include "model/NativeModals.h"
#include "model/ObserverControl.h"
#include "observer/LocalObserverAPI.h"
#include "observer/SettingsOnDisk.h"

#include <QDateTime>

namespace ostrel {

namespace {

constexpr std::chrono::seconds pollPause{1};
constexpr int defaultRangeDays = 7;

QString notConfigured()
{
    return QStringLiteral("Archive vault not configured");
}

} // namespace

ExportArea::ExportArea(Dependencies dependencies)
    : m_with(dependencies), m_destination(QStringLiteral("~/Desktop/ostrel-export"))
{
    useDefaultRange();
}

ExportArea::~ExportArea() = default;

QDate ExportArea::today() const
{
    return QDateTime::fromMSecsSinceEpoch(m_with.clock.nowMs()).date();
}

void ExportArea::useDefaultRange()
{
    const QDate last = today();
    const QDate first = last.addDays(-defaultRangeDays);
    setRange(first.isValid() ? first : last, last);
}

void ExportArea::setRange(QDate from, QDate to)
{
    if (!from.isValid() || !to.isValid() || (from == m_from && to == m_to))
        return;
    m_from = from;
    m_to = to;
    Q_EMIT archiveExportRangeChanged();
}

void ExportArea::setArchiveExportFrom(QDate date)
{
    m_rangeChosen = m_rangeChosen || date.isValid();
    setRange(date, m_to);
}

void ExportArea::setArchiveExportTo(QDate date)
{
    m_rangeChosen = m_rangeChosen || date.isValid();
    setRange(m_from, date);
}

void ExportArea::setArchiveExportDestination(const QString &path)
{
    if (path == m_destination)
        return;
    m_destination = path;
    Q_EMIT archiveExportDestinationChanged();
}

QString ExportArea::exportDateString(QDate date)
{
    return date.toString(QStringLiteral("yyyy-MM-dd"));
}

QString ExportArea::archiveExportEstimateText() const
{
    if (m_estimateFailed)
        return QStringLiteral("Size not known");
    if (!m_estimate)
        return QStringLiteral("Estimating size\u2026");
    const QString clips =
        m_estimate->clips == 1 ? QStringLiteral("1 clip") : QStringLiteral("%1 clips").arg(m_estimate->clips);
    return QStringLiteral("%1, %2").arg(clips, byteCountText(m_estimate->bytes));
}

void ExportArea::openArchiveExportCard()
{
    m_openTask.start([this](std::stop_token stop) { return open(std::move(stop)); });
}

Task<> ExportArea::open(std::stop_token stop)
{
    const auto saved = co_await m_with.worker.run(stop, [] { return readSettingsOnDisk().settings.archiveVaultId; });
    if (!saved)
        co_return;
    // The file knows of a vault only once settings were saved after it came to be; the mirror knows it at once.
    if (saved->isEmpty() && m_with.state.settings().archiveVaultId.isEmpty())
        co_return m_with.state.setArchiveError(notConfigured());
    if (m_with.state.archiveMessage() == notConfigured())
        m_with.state.clearArchiveMessage();
    if (!m_rangeChosen)
        useDefaultRange();
    setStatus(std::nullopt);
    setCard(ArchiveExportCard::configure);
    refreshArchiveExportEstimate();

    const auto api = m_with.observer.api();
    const auto status = co_await api->archiveExportStatus(stop);
    if (stop.stop_requested() || !status || status->state != QLatin1String("running"))
        co_return;
    setStatus(*status);
    setCard(ArchiveExportCard::running);
    startArchiveExportPolling();
}

void ExportArea::closeArchiveExportCard()
{
    m_openTask.cancel();
    m_estimateTask.cancel();
    m_archiveExportPollTask.cancel();
    setEstimate(std::nullopt, m_estimateFailed);
    setCard(std::nullopt);
}

void ExportArea::refreshArchiveExportEstimate()
{
    setEstimate(std::nullopt, false);
    m_estimateTask.start([this, from = exportDateString(m_from), to = exportDateString(m_to)](std::stop_token stop) {
        return estimate(from, to, std::move(stop));
    });
}

Task<> ExportArea::estimate(QString from, QString to, std::stop_token stop)
{
    const auto reachable = co_await m_with.observer.bringUp(stop);
    if (stop.stop_requested())
        co_return;
    if (!reachable)
        co_return setEstimate(std::nullopt, true);
    const auto api = m_with.observer.api();
    const auto answer = co_await api->archiveExportEstimate(from, to, stop);
    if (stop.stop_requested())
        co_return;
    if (answer)
        setEstimate(*answer, false);
    else
        setEstimate(std::nullopt, true);
}

void ExportArea::chooseArchiveExportDestination()
{
    if (!m_dialog.isRunning())
        m_dialog.start([this](std::stop_token stop) { return chooseDestination(std::move(stop)); });
}

Task<> ExportArea::chooseDestination(std::stop_token stop)
{
    const auto answer = co_await m_with.modals.runNativeModal(OpenPanel{.message = {},
                                                                        .prompt = QStringLiteral("Choose"),
                                                                        .canChooseFiles = false,
                                                                        .canChooseDirectories = true,
                                                                        .canCreateDirectories = true,
                                                                        .allowedFileTypes = {},
                                                                        .directory = {}},
                                                              std::move(stop));
    if (answer.response == DialogResponse::ok && !answer.path.isEmpty())
        setArchiveExportDestination(abbreviatedPath(answer.path));
}

void ExportArea::revealArchiveExportDestination()
{
    m_with.dialogs.openFolder(expandedPath(m_destination));
}

void ExportArea::startArchiveExport()
{
    // The card stays where it is until the observer has answered.
    if (m_card != ArchiveExportCard::configure || m_startTask.isRunning())
        return;
    m_with.state.clearArchiveMessage();
    m_startTask.start(
        [this, destination = expandedPath(m_destination), from = exportDateString(m_from),
         to = exportDateString(m_to)](std::stop_token stop) { return start(destination, from, to, std::move(stop)); });
}

Task<> ExportArea::start(QString destination, QString from, QString to, std::stop_token stop)
{
    const auto reachable = co_await m_with.observer.bringUp(stop);
    if (stop.stop_requested())
        co_return;
    if (!reachable)
        co_return m_with.state.setArchiveError(reachable.error().localizedDescription);
    const auto &observer = m_with.state.status();
    const auto lastError = observer ? observer->lastError : std::nullopt;
    const auto api = m_with.observer.api();
    const auto started = co_await api->startArchiveExport(destination, from, to, stop);
    if (stop.stop_requested())
        co_return;
    if (!started) {
        const Error error = co_await m_with.observer.withReason(started.error(), lastError, stop);
        if (!stop.stop_requested())
            m_with.state.setArchiveError(error.localizedDescription);
        co_return;
    }
    if (m_card != ArchiveExportCard::configure)
        co_return; // closed meanwhile; the export goes on, and opening the card takes it up
    setStatus(*started);
    setCard(ArchiveExportCard::running);
    startArchiveExportPolling();
}

void ExportArea::startArchiveExportPolling()
{
    m_archiveExportPollTask.start([this](std::stop_token stop) { return poll(std::move(stop)); });
}

Task<> ExportArea::poll(std::stop_token stop)
{
    int failures = 0;
    do {
        const auto api = m_with.observer.api();
        const auto status = co_await api->archiveExportStatus(stop);
        if (stop.stop_requested())
            co_return;
        failures = status ? 0 : failures + 1;
        if (!status)
            Q_EMIT archiveExportPollFailed(failures, status.error().localizedDescription);
        else if (!take(*status))
            co_return;
    } while (co_await m_with.clock.sleepFor(pollPause, stop));
}

bool ExportArea::take(const ArchiveExportStatus &status)
{
    if (status.state == QLatin1String("idle")) {
        setStatus(std::nullopt);
        setCard(ArchiveExportCard::configure);
        return false;
    }
    setStatus(status);
    const bool isOver = status.state == QLatin1String("done") || status.state == QLatin1String("failed") ||
                        status.state == QLatin1String("cancelled");
    if (isOver)
        setCard(ArchiveExportCard::finished);
    return !isOver;
}

void ExportArea::cancelArchiveExport()
{
    m_tasks.spawn([this](std::stop_token stop) { return cancel(std::move(stop)); });
}

Task<> ExportArea::cancel(std::stop_token stop)
{
    const auto api = m_with.observer.api();
    const auto status = co_await api->cancelArchiveExport(stop);
    if (stop.stop_requested())
        co_return;
    // The end that the polling has seen meanwhile is the last word.
    if (status && m_card == ArchiveExportCard::running)
        setStatus(*status);
    else if (!status)
        m_with.state.setArchiveError(status.error().localizedDescription);
}

void ExportArea::setCard(std::optional<ArchiveExportCard> card)
{
    if (card == m_card)
        return;
    m_card = card;
    Q_EMIT archiveExportCardChanged();
}

void ExportArea::setEstimate(const std::optional<ArchiveExportEstimate> &estimate, bool failed)
{
    if (estimate == m_estimate && failed == m_estimateFailed)
        return;
    m_estimate = estimate;
    m_estimateFailed = failed;
    Q_EMIT archiveExportEstimateChanged();
}

void ExportArea::setStatus(const std::optional<ArchiveExportStatus> &status)
{
    if (status == m_status)
        return;
    m_status = status;
    Q_EMIT archiveExportStatusChanged();
}

} // namespace ostrel
