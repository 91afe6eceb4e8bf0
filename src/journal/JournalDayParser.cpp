#include "journal/JournalDayParser.h"

#include "base/Text.h"

#include <QStringView>

#include <utility>

namespace ostrel {

namespace {

bool isBlankOrNewline(QChar c)
{
    return isBlank(c) || isNewline(c);
}

using Belongs = bool (*)(QChar);

QStringView withoutLeading(QStringView text, Belongs drop)
{
    while (!text.isEmpty() && drop(text.front()))
        text = text.sliced(1);
    return text;
}

QStringView withoutTrailing(QStringView text, Belongs drop)
{
    while (!text.isEmpty() && drop(text.back()))
        text.chop(1);
    return text;
}

/// Cuts off a comment "<!-- key: … -->" at the end of a text that has no white space around it. The comment begins
/// at the first place from which it can: its body holds no ">", but may well hold another "<!--".
QStringView withoutKeyComment(QStringView text)
{
    const QStringView end = u"-->";
    if (!text.endsWith(end))
        return text;
    const QStringView body = text.chopped(end.size());
    const QStringView open = u"<!--";
    qsizetype start = body.indexOf(open, body.lastIndexOf(u'>') + 1);
    for (; start >= 0; start = body.indexOf(open, start + 1)) {
        if (withoutLeading(body.sliced(start + open.size()), isBlank).startsWith(u"key:"))
            return withoutTrailing(text.first(start), isBlank);
    }
    return text;
}

std::optional<JournalEntry> parseEntry(QStringView line, const std::optional<QString> &sessionId)
{
    const QStringView bullet = u"- [";
    const qsizetype close = line.indexOf(u']');
    if (!line.startsWith(bullet) || close < 0)
        return std::nullopt;
    const QStringView time = line.sliced(bullet.size(), close - bullet.size());
    const QStringView rest = withoutTrailing(withoutLeading(line.sliced(close + 1), isBlank), isBlank);
    const QStringView text = withoutKeyComment(rest);
    if (time.isEmpty() || text.isEmpty())
        return std::nullopt;
    return JournalEntry{
        .session = sessionId.value_or(QStringLiteral("session")), .time = time.toString(), .text = text.toString()};
}

QString parseStartTime(QStringView line, QStringView keyword)
{
    // All of them go, wherever they stand.
    return trimmedBlanks(line.toString().remove(keyword.toString()));
}

class DayParser
{
public:
    void readLine(QStringView line)
    {
        const QStringView heading = u"## Session ";
        const QStringView startTime = u"start_time:";
        const QStringView fromFirstWord = withoutLeading(line, isBlankOrNewline);
        if (fromFirstWord.startsWith(heading)) {
            finishSession();
            m_sessionId = withoutTrailing(fromFirstWord.sliced(heading.size()), isBlankOrNewline).toString();
            return;
        }
        const QStringView trimmed = withoutTrailing(fromFirstWord, isBlankOrNewline);
        if (trimmed.startsWith(startTime))
            m_startTime = parseStartTime(trimmed, startTime);
        else if (auto entry = parseEntry(trimmed, m_sessionId))
            m_entries.append(std::move(*entry));
    }

    QList<JournalSession> finish()
    {
        finishSession();
        return std::move(m_sessions);
    }

private:
    /// Without a heading nothing is closed: what has come so far is the next heading's.
    void finishSession()
    {
        if (!m_sessionId)
            return;
        m_entries.squeeze(); // it is kept for as long as the application runs
        m_sessions.append(JournalSession{.id = *std::exchange(m_sessionId, std::nullopt),
                                         .startTime = std::exchange(m_startTime, {}),
                                         .entries = std::exchange(m_entries, {})});
    }

    QList<JournalSession> m_sessions;
    std::optional<QString> m_sessionId;
    QString m_startTime;
    QList<JournalEntry> m_entries;
};

/// Tells nearly every character apart from a line break without looking it up.
bool isPlain(QChar c)
{
    return c > u'\r' && c < QChar(0x80);
}

} // namespace

JournalDay parseJournalDay(const QString &dateKey, const QString &text)
{
    DayParser parser;
    const QStringView all(text);
    qsizetype start = 0;
    for (qsizetype i = 0; i < all.size(); ++i) {
        if (isPlain(all[i]) || !isNewline(all[i]))
            continue;
        parser.readLine(all.sliced(start, i - start));
        start = i + 1;
    }
    parser.readLine(all.sliced(start));
    return JournalDay{.id = dateKey, .dateKey = dateKey, .sessions = parser.finish()};
}

} // namespace ostrel
