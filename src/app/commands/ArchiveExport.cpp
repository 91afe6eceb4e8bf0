#include "app/ArchiveSession.h"
#include "app/ArchiveTexts.h"
#include "app/CommandLine.h"
#include "app/Json.h"
#include "app/TerminationSignals.h"
#include "app/commands/ArchiveActions.h"

#include <QObject>

#include <algorithm>

#include <unistd.h>

namespace ostrel {

namespace {

/// One export from a terminal, from its start to its end.
class ForegroundExport
{
public:
    ForegroundExport(ArchiveSession &session, const ArchiveOptions &options) : m_session(session), m_options(options) {}

    CommandResult run();

private:
    ExportArea &area() { return m_session.exporting(); }
    std::optional<QString> openCard();
    void follow();
    void end(EndingPace pace);
    void onCard();
    void onStatus();
    void onEstimate();
    void onMessage();
    void onPollFailed(int times, const QString &words);
    void giveUp(const QString &words);
    CommandResult outcome() const;

    ArchiveSession &m_session;
    const ArchiveOptions m_options;
    QEventLoop m_loop;
    bool m_isRunning = false;
    bool m_isEnding = false; ///< because of a signal
    std::optional<ArchiveExportStatus> m_last;
    std::optional<QString> m_failure; ///< why it can't be followed to its end
    int m_toldTenths = 0;
};

CommandResult ForegroundExport::run()
{
    const auto earlier = m_session.fetchExportStatus();
    if (earlier && earlier->state == QLatin1String("running"))
        return CommandResult::failure(
            ExitFailed, QStringLiteral("An export is under way already: %1. `ostrel archive status` tells "
                                       "how far it is.")
                            .arg(exportProgressText(*earlier)));
    if (m_options.from.isValid())
        area().setArchiveExportFrom(m_options.from);
    if (m_options.to.isValid())
        area().setArchiveExportTo(m_options.to);
    area().setArchiveExportDestination(m_options.into);
    if (const auto error = openCard())
        return CommandResult::failure(ExitFailed, *error);
    follow();
    return outcome();
}

/// @return why there is nothing to export from
std::optional<QString> ForegroundExport::openCard()
{
    QEventLoop loop;
    const auto isDecided = [this] {
        return m_session.state().archiveMessageIsError() || area().archiveExportCard().has_value();
    };
    const auto look = [&] {
        if (isDecided())
            loop.quit();
    };
    QObject::connect(&area(), &ExportArea::archiveExportCardChanged, &loop, look, Qt::QueuedConnection);
    QObject::connect(&m_session.state(), &ModelState::archiveMessageChanged, &loop, look, Qt::QueuedConnection);
    area().openArchiveExportCard();
    if (!isDecided())
        loop.exec();
    return m_session.state().archiveMessageIsError() ? m_session.state().archiveMessage() : std::nullopt;
}

/// Until the card says that it is over, or it can't be followed any more.
void ForegroundExport::follow()
{
    const TerminationSignals signals([this](EndingPace pace) { end(pace); },
                                     [] {
                                         printMessage(
                                             QStringLiteral("ostrel: no longer waiting for the export's end\n"));
                                         ::_exit(ExitFailed);
                                     });
    QObject::connect(
        &area(), &ExportArea::archiveExportCardChanged, &m_loop, [this] { onCard(); }, Qt::QueuedConnection);
    QObject::connect(&area(), &ExportArea::archiveExportStatusChanged, &m_loop, [this] { onStatus(); });
    QObject::connect(&area(), &ExportArea::archiveExportEstimateChanged, &m_loop, [this] { onEstimate(); });
    QObject::connect(&area(), &ExportArea::archiveExportPollFailed, &m_loop,
                     [this](int times, const QString &words) { onPollFailed(times, words); });
    QObject::connect(&m_session.state(), &ModelState::archiveMessageChanged, &m_loop, [this] { onMessage(); });
    onEstimate();
    area().startArchiveExport();
    m_loop.exec();
}

void ForegroundExport::end(EndingPace pace)
{
    m_isEnding = true;
    printMessage(QStringLiteral("Cancelling the export. A second signal ends at once.\n"));
    if (m_isRunning)
        area().cancelArchiveExport();
    if (pace == EndingPace::Patient)
        return;
    // The session is about to end, and us with it.
    constexpr std::chrono::seconds patience{4};
    static_cast<void>(m_session.clock().schedule(
        patience, [this] { giveUp(QStringLiteral("The observer has not confirmed that the export is cancelled.")); }));
}

void ForegroundExport::onCard()
{
    const auto card = area().archiveExportCard();
    if (card == ArchiveExportCard::finished)
        return m_loop.quit();
    if (card == ArchiveExportCard::running && !std::exchange(m_isRunning, true) && m_isEnding)
        area().cancelArchiveExport();
    if (card == ArchiveExportCard::configure && m_isRunning)
        giveUp(
            QStringLiteral("The observer knows of no export any more; it may have been started anew. Run this again: "
                           "it goes on where it was."));
}

void ForegroundExport::onStatus()
{
    const auto &status = area().archiveExportStatus();
    if (!status)
        return;
    m_last = status;
    if (status->total <= 0)
        return;
    // In place where somebody watches; elsewhere a line for each tenth.
    constexpr int tenths = 10;
    const int done = int(std::clamp(double(status->exported) / double(status->total), 0.0, 1.0) * tenths);
    if (::isatty(STDERR_FILENO) == 1)
        printMessage(QStringLiteral("\r\x1b[K%1").arg(exportProgressText(*status)));
    else if (done != m_toldTenths)
        printMessage(exportProgressText(*status) + QLatin1Char('\n'));
    m_toldTenths = done;
}

void ForegroundExport::onEstimate()
{
    if (area().archiveExportEstimate() && !m_isRunning)
        printMessage(QStringLiteral("In these days: %1.\n").arg(area().archiveExportEstimateText()));
}

void ForegroundExport::onMessage()
{
    if (!m_session.state().archiveMessageIsError())
        return;
    const QString words = *m_session.state().archiveMessage();
    if (m_isRunning)
        printMessage(QStringLiteral("ostrel: %1\n").arg(words)); // it could not be cancelled, and goes on
    else
        giveUp(words);
}

void ForegroundExport::onPollFailed(int times, const QString &words)
{
    // A second apart; an observer that is busy answers in less.
    constexpr int patience = 10;
    if (times >= patience)
        giveUp(QStringLiteral("The observer can't be asked about the export any more: %1 What was exported may be "
                              "incomplete; run this again to complete it.")
                   .arg(words));
}

void ForegroundExport::giveUp(const QString &words)
{
    m_failure = words;
    m_loop.quit();
}

CommandResult ForegroundExport::outcome() const
{
    // The line that was rewritten in place has no end yet.
    const QString before = m_last && ::isatty(STDERR_FILENO) == 1 ? QStringLiteral("\n") : QString();
    CommandResult result;
    if (m_failure)
        result = CommandResult::failure(ExitFailed, *m_failure);
    else if (m_last->state == QLatin1String("done"))
        result.messages = exportOutcomeText(*m_last) + QLatin1Char('\n');
    else
        result = CommandResult::failure(ExitFailed, exportOutcomeText(*m_last));
    result.messages.prepend(before);
    if (m_options.json && m_last)
        result.output = jsonDocument(exportStatusJson(*m_last));
    return result;
}

} // namespace

CommandResult exportArchive(const ArchiveOptions &options, const Platform &platform)
{
    const auto session = ArchiveSession::open(platform);
    if (!session)
        return CommandResult::failure(ExitFailed, session.error());
    // Tells the model of the vault, and whether there is an observer to ask.
    if (const auto status = (*session)->fetchArchiveStatus(); !status)
        return CommandResult::failure(ExitFailed, status.error().localizedDescription);
    return ForegroundExport(**session, options).run();
}

} // namespace ostrel
