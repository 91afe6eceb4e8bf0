#include "app/Json.h"
#include "app/commands/Commands.h"
#include "base/Text.h"
#include "journal/JournalReader.h"
#include "observer/SettingsStore.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>

namespace ostrel {

namespace {

constexpr qint64 usualLimit = 7;
const QString limitOption = QStringLiteral("limit");
const QString dayOption = QStringLiteral("day");

QString asText(const JournalSession &session)
{
    QString text = QStringLiteral("\n## Session %1\n").arg(session.id);
    if (!session.startTime.isEmpty())
        text += QStringLiteral("start_time: %1\n").arg(session.startTime);
    text += QLatin1Char('\n');
    for (const JournalEntry &entry : session.entries)
        text += QStringLiteral("- [%1] %2\n").arg(entry.time, entry.text);
    return text;
}

QString asText(const QList<JournalDay> &days)
{
    QStringList texts;
    for (const JournalDay &day : days) {
        QString text = QStringLiteral("# %1\n").arg(day.dateKey);
        for (const JournalSession &session : day.sessions)
            text += asText(session);
        texts.append(text);
    }
    return texts.join(QLatin1Char('\n'));
}

QJsonObject asJson(const JournalEntry &entry)
{
    const auto workspace = entry.parsedWorkspace();
    return {{QStringLiteral("id"), entry.id()},
            {QStringLiteral("time"), entry.time},
            {QStringLiteral("text"), entry.text},
            {QStringLiteral("displayTime"), JournalEntry::formatDisplayTime(entry.time)},
            {QStringLiteral("workspace"), orNull(workspace ? std::optional(workspace->label) : std::nullopt)},
            {QStringLiteral("action"), orNull(workspace ? std::optional(workspace->action) : std::nullopt)}};
}

QJsonObject asJson(const JournalSession &session)
{
    QJsonArray entries;
    for (const JournalEntry &entry : session.entries)
        entries.append(asJson(entry));
    return {{QStringLiteral("id"), session.id},
            {QStringLiteral("startTime"), session.startTime},
            {QStringLiteral("entries"), entries}};
}

QJsonArray asJson(const QList<JournalDay> &days)
{
    QJsonArray array;
    for (const JournalDay &day : days) {
        QJsonArray sessions;
        for (const JournalSession &session : day.sessions)
            sessions.append(asJson(session));
        array.append(QJsonObject{{QStringLiteral("id"), day.id},
                                 {QStringLiteral("dateKey"), day.dateKey},
                                 {QStringLiteral("sessions"), sessions}});
    }
    return array;
}

QList<JournalDay> readDay(const JournalReader &reader, const QString &dateKey)
{
    const auto day = reader.readDay(dateKey);
    return day ? QList<JournalDay>{*day} : QList<JournalDay>();
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    static const QRegularExpression dateKey(QStringLiteral("\\A\\d{4}-\\d{2}-\\d{2}\\z"));
    const QString day = parser.value(dayOption);
    if (parser.isSet(dayOption) && !dateKey.match(day).hasMatch())
        return usageError(QStringLiteral("journal"),
                          QStringLiteral("--day takes a day as in 2026-11-21, not \"%1\".").arg(day));
    const auto limit = parser.isSet(limitOption) ? parseInteger(parser.value(limitOption)) : usualLimit;
    if (!limit || *limit < 0)
        return usageError(QStringLiteral("journal"),
                          QStringLiteral("--limit takes a number of days, not \"%1\".").arg(parser.value(limitOption)));

    const JournalReader reader(SettingsStore(platform.secrets).load().outputDirectory);
    const QList<JournalDay> days = parser.isSet(dayOption) ? readDay(reader, day) : reader.readDays(*limit);
    return CommandResult::data(parser.isSet(jsonOption()) ? jsonDocument(asJson(days)) : asText(days));
}

} // namespace

Command journalCommand()
{
    return {.name = QStringLiteral("journal"),
            .description = QStringLiteral("Prints the journal, the newest day first."),
            .arguments = {},
            .options = {{limitOption, QStringLiteral("At most N days; 7 unless told."), QStringLiteral("N")},
                        {dayOption, QStringLiteral("Only this day, as in 2026-11-21."), QStringLiteral("D")},
                        jsonOption()},
            .run = run};
}

} // namespace ostrel
