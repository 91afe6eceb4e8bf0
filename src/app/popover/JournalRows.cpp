#include "app/popover/JournalRows.h"

#include <QDateTime>
#include <QHash>
#include <QLocale>

namespace ostrel {

namespace {

QDate dateOf(const QString &dateKey)
{
    return QDate::fromString(dateKey, Qt::ISODate);
}

/// Builds the lines of one day and gives each a key of its own, whatever the journal repeats.
class DayRows
{
public:
    DayRows(QList<JournalRow> &rows, const JournalDay &day) : m_rows(rows), m_day(day) {}

    void addHeader(bool collapsed, int currentYear)
    {
        m_rows.append({.key = unique({.kind = JournalRow::Kind::Day, .dateKey = m_day.dateKey}),
                       .collapsed = collapsed,
                       .ofThisYear = dateOf(m_day.dateKey).year() == currentYear});
    }

    void addSession(const JournalSession &session)
    {
        m_rows.append(
            {.key = unique({.kind = JournalRow::Kind::Session, .dateKey = m_day.dateKey, .session = session.id}),
             .startTime = session.startTime});
        for (const JournalEntry &entry : session.entries)
            m_rows.append({.key = unique({.kind = JournalRow::Kind::Entry,
                                          .dateKey = m_day.dateKey,
                                          .session = entry.session,
                                          .time = entry.time,
                                          .text = entry.text})});
    }

private:
    JournalRow::Key unique(JournalRow::Key key)
    {
        const int repetition = m_seen[key]++;
        key.repetition = repetition;
        return key;
    }

    QList<JournalRow> &m_rows;
    const JournalDay &m_day;
    QHash<JournalRow::Key, int> m_seen; ///< how often, by the key without a repetition
};

qsizetype lineCount(const JournalDay &day)
{
    qsizetype count = 1;
    for (const JournalSession &session : day.sessions)
        count += 1 + session.entries.size();
    return count;
}

} // namespace

QString JournalRow::dayName() const
{
    const QDate date = dateOf(key.dateKey);
    return date.isValid() ? QLocale().dayName(date.dayOfWeek()) : key.dateKey;
}

QString JournalRow::dayDate() const
{
    const QDate date = dateOf(key.dateKey);
    if (!date.isValid())
        return {};
    return QLocale().toString(date, ofThisYear ? QStringLiteral("d MMMM") : QStringLiteral("d MMMM yyyy"));
}

QString JournalRow::displayTime() const
{
    if (key.kind == Kind::Entry)
        return JournalEntry::formatDisplayTime(key.time);
    // The observer writes a date with its time; by hand it is mostly a time alone.
    const QDateTime begun = QDateTime::fromString(startTime, Qt::ISODate);
    return JournalEntry::formatDisplayTime(begun.isValid() ? begun.time().toString(QStringLiteral("HH:mm"))
                                                           : startTime);
}

QString JournalRow::workspace() const
{
    const auto parsed = entry().parsedWorkspace();
    return parsed ? parsed->label : QString();
}

QString JournalRow::text() const
{
    const auto parsed = entry().parsedWorkspace();
    return parsed ? parsed->action : key.text;
}

JournalEntry JournalRow::entry() const
{
    return {.session = key.session, .time = key.time, .text = key.text};
}

QList<JournalRow> journalRows(const QList<JournalDay> &days, const QSet<QString> &collapsed, int currentYear)
{
    qsizetype count = 0;
    for (const JournalDay &day : days)
        count += collapsed.contains(day.dateKey) ? 1 : lineCount(day);
    QList<JournalRow> rows;
    rows.reserve(count);
    for (const JournalDay &day : days) {
        const bool isCollapsed = collapsed.contains(day.dateKey);
        DayRows of(rows, day);
        of.addHeader(isCollapsed, currentYear);
        if (isCollapsed)
            continue;
        for (const JournalSession &session : day.sessions)
            of.addSession(session);
    }
    return rows;
}

} // namespace ostrel
