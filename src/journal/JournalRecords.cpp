#include "journal/JournalRecords.h"

#include "base/Text.h"

namespace ostrel {

QString JournalEntry::formatDisplayTime(const QString &time)
{
    const QStringList pieces = time.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    if (pieces.size() < 2)
        return time;
    const auto hour = parseInteger(pieces[0]);
    const auto minute = parseInteger(pieces[1]);
    if (!hour || !minute || *hour < 0 || *hour >= 24 || *minute < 0 || *minute >= 60)
        return time;
    const qint64 hourOfHalf = *hour % 12 == 0 ? 12 : *hour % 12;
    return QStringLiteral("%1:%2 %3")
        .arg(hourOfHalf)
        .arg(*minute, 2, 10, QLatin1Char('0'))
        .arg(*hour < 12 ? QStringLiteral("AM") : QStringLiteral("PM"));
}

std::optional<JournalWorkspace> JournalEntry::parsedWorkspace() const
{
    const qsizetype close = text.indexOf(QLatin1Char(']'));
    if (!text.startsWith(QLatin1Char('[')) || close < 0)
        return std::nullopt;
    JournalWorkspace workspace{.label = trimmedBlanksAndNewlines(text.mid(1, close - 1)),
                               .action = trimmedBlanksAndNewlines(text.mid(close + 1))};
    const QString keyword = QStringLiteral("action:");
    if (workspace.action.left(keyword.size()).toLower() == keyword)
        workspace.action = trimmedBlanksAndNewlines(workspace.action.mid(keyword.size()));
    if (workspace.label.isEmpty() || workspace.action.isEmpty())
        return std::nullopt;
    return workspace;
}

} // namespace ostrel
