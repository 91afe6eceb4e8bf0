#include "app/CommandLine.h"
#include "app/Json.h"
#include "app/ObserverSession.h"
#include "app/StandardInput.h"
#include "app/commands/Commands.h"
#include "base/Text.h"

#include <QDateTime>
#include <QJsonObject>

#include <expected>

#include <unistd.h>

namespace ostrel {

namespace {

const QString commandName = QStringLiteral("forget");
const QString minutesOption = QStringLiteral("minutes");
const QString fromOption = QStringLiteral("from");
const QString toOption = QStringLiteral("to");
const QString yesOption = QStringLiteral("yes");

/// Both ends belong to it.
struct Span {
    QDateTime from;
    QDateTime to;
};

/// Ten years: more is a slip of the finger.
constexpr qint64 mostMinutes = 10LL * 366 * 24 * 60;

/// The hour at the end of daylight saving occurs twice: the first of both for a beginning, else the last.
QDateTime furthest(const QDateTime &time, bool isEnd)
{
    constexpr qint64 secondsOfHour = 3600;
    const QDateTime other =
        QDateTime::fromMSecsSinceEpoch(time.toMSecsSinceEpoch()).addSecs(isEnd ? secondsOfHour : -secondsOfHour);
    return other.date() == time.date() && other.time() == time.time() ? other : time;
}

/// "2026-11-21 10:30", "2026-11-21T10:30:05", or "10:30" of today. The end of a minute that is named without its
/// seconds is the end of that minute.
std::optional<QDateTime> readTime(const QString &words, bool isEnd, const QDateTime &now)
{
    QString text = words.trimmed().replace(u'T', u' ');
    if (!text.contains(u' '))
        text.prepend(now.toString(QStringLiteral("yyyy-MM-dd ")));
    QDateTime time = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd HH:mm"));
    constexpr qint64 restOfMinuteMs = 59'999;
    constexpr qint64 restOfSecondMs = 999;
    if (time.isValid() && time.toMSecsSinceEpoch() >= 0)
        return furthest(isEnd ? time.addMSecs(restOfMinuteMs) : time, isEnd);
    time = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    if (!time.isValid() || time.toMSecsSinceEpoch() < 0)
        return std::nullopt;
    return furthest(isEnd ? time.addMSecs(restOfSecondMs) : time, isEnd);
}

std::expected<Span, QString> readSpan(const QCommandLineParser &parser, const QDateTime &now)
{
    if (parser.isSet(minutesOption)) {
        if (parser.isSet(fromOption) || parser.isSet(toOption))
            return std::unexpected(QStringLiteral("Say --minutes, or --from and --to, not both."));
        const auto minutes = parseInteger(parser.value(minutesOption));
        if (!minutes || *minutes < 1 || *minutes > mostMinutes)
            return std::unexpected(QStringLiteral("--minutes takes a number of minutes, 1 or more."));
        constexpr qint64 secondsOfMinute = 60;
        return Span{.from = now.addSecs(-*minutes * secondsOfMinute), .to = now};
    }
    if (!parser.isSet(fromOption))
        return std::unexpected(QStringLiteral("Say what to forget: --minutes N, or --from TIME and --to TIME."));
    const QString form = QStringLiteral("--%1 takes a local time as in \"2026-11-21 10:30\" or 10:30.");
    const auto from = readTime(parser.value(fromOption), false, now);
    if (!from)
        return std::unexpected(form.arg(fromOption));
    const auto to = parser.isSet(toOption) ? readTime(parser.value(toOption), true, now) : std::optional(now);
    if (!to)
        return std::unexpected(form.arg(toOption));
    if (*to < *from)
        return std::unexpected(QStringLiteral("That ends before it begins."));
    return Span{.from = *from, .to = *to};
}

QString shown(const Span &span)
{
    const QString form = QStringLiteral("yyyy-MM-dd HH:mm:ss");
    return QStringLiteral("%1 to %2").arg(span.from.toString(form), span.to.toString(form));
}

/// @return what keeps it from being done; nothing where the user wants it
std::optional<CommandResult> refusal(const QCommandLineParser &parser, const Span &span)
{
    if (parser.isSet(yesOption))
        return std::nullopt;
    if (::isatty(STDIN_FILENO) != 1)
        return usageError(commandName,
                          QStringLiteral("Nobody can be asked here; say --yes to forget %1.").arg(shown(span)));
    printMessage(QStringLiteral("Everything of %1 is removed for good: waiting pictures and texts, kept model inputs, "
                                "journal lines, and whole clips of the archive. Type yes: ")
                     .arg(shown(span)));
    const auto typed = readStandardInputLine();
    if (typed && trimmedBlanksAndNewlines(*typed).compare(QLatin1String("yes"), Qt::CaseInsensitive) == 0)
        return std::nullopt;
    return CommandResult::failure(ExitFailed, QStringLiteral("Nothing was removed."));
}

QString text(const ForgetReport &report, const Span &span)
{
    QString text = QStringLiteral("Of %1 were removed:\n").arg(shown(span));
    const auto line = [&text](qint64 count, const QString &what) {
        text += QStringLiteral("  %1 %2\n").arg(count, 6).arg(what);
    };
    line(report.frames, QStringLiteral("waiting frames"));
    line(report.rawInputs, QStringLiteral("kept model inputs"));
    line(report.journalLines, QStringLiteral("journal lines"));
    line(report.archiveFrames, QStringLiteral("frames on their way into the archive"));
    line(report.archiveClips, QStringLiteral("archive clips, whole ones, which may reach beyond that time"));
    return text;
}

QString warnings(const ForgetReport &report)
{
    QString words;
    if (report.rawInputsUnknown > 0)
        words += QStringLiteral("ostrel: %1 kept model inputs don't tell of when they are, and were left; look into "
                                "rawInputDirectory.\n")
                     .arg(report.rawInputsUnknown);
    if (report.notSearched)
        words += QStringLiteral("ostrel: %1\n").arg(*report.notSearched);
    if (report.archiveWaits)
        words += QStringLiteral("ostrel: %1\n").arg(*report.archiveWaits);
    return words;
}

QJsonObject json(const ForgetReport &report, const Span &span)
{
    return {{QStringLiteral("from"), span.from.toOffsetFromUtc(span.from.offsetFromUtc()).toString(Qt::ISODate)},
            {QStringLiteral("to"), span.to.toOffsetFromUtc(span.to.offsetFromUtc()).toString(Qt::ISODate)},
            {QStringLiteral("frames"), report.frames},
            {QStringLiteral("rawInputs"), report.rawInputs},
            {QStringLiteral("rawInputsUnknown"), report.rawInputsUnknown},
            {QStringLiteral("journalLines"), report.journalLines},
            {QStringLiteral("archiveClips"), report.archiveClips},
            {QStringLiteral("archiveFrames"), report.archiveFrames},
            {QStringLiteral("notSearched"), orNull(report.notSearched)},
            {QStringLiteral("archiveWaits"), orNull(report.archiveWaits)}};
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const auto span = readSpan(parser, QDateTime::currentDateTime());
    if (!span)
        return usageError(commandName, span.error());
    if (const auto refused = refusal(parser, *span))
        return *refused;
    const auto session = ObserverSession::open(platform);
    if (!session)
        return CommandResult::failure(ExitFailed, session.error());
    const auto report = (*session)->forget(span->from.toMSecsSinceEpoch(), span->to.toMSecsSinceEpoch());
    if (!report)
        return CommandResult::failure(ExitFailed,
                                      QStringLiteral("%1 Whether anything was removed is not known; run it again.")
                                          .arg(report.error().localizedDescription));
    // What could not be removed is a failure, to whoever relies on its being gone.
    const bool isAll = !report->archiveWaits && !report->notSearched && report->rawInputsUnknown == 0;
    return {.status = isAll ? ExitSuccess : ExitFailed,
            .output = parser.isSet(jsonOption()) ? jsonDocument(json(*report, *span)) : text(*report, *span),
            .messages = warnings(*report)};
}

} // namespace

Command forgetCommand()
{
    const QString time = QStringLiteral("TIME");
    return {
        .name = commandName,
        .description = QStringLiteral("Removes a time from everything that is kept of it."),
        .arguments = {},
        .options = {{minutesOption, QStringLiteral("The last N minutes."), QStringLiteral("N")},
                    {fromOption,
                     QStringLiteral("From this local time on, as in \"2026-11-21 10:30\", or 10:30 of today."), time},
                    {toOption, QStringLiteral("Up to this one, and all of its minute; up to now unless told."), time},
                    {yesOption, QStringLiteral("Don't ask.")},
                    jsonOption()},
        .run = run};
}

} // namespace ostrel
