#include "app/popover/JournalRows.h"

#include <QDateTime>
#include <QHash>
#include <QLocale>

namespace ostrel {

namespace {

/// Builds the lines of one day and gives each a key of its own, whatever the journal repeats.
class DayRows
{
public:
    DayRows(QList<JournalRow> &rows, const JournalDay &day) : m_rows(rows), m_day(day) {}

    void addHeader(bool collapsed, int currentYear)
    {
        JournalRow row = blank(JournalRow::Kind::Day, QString());
        row.collapsed = collapsed;
        const QLocale locale;
        const QDate date = QDate::fromString(m_day.dateKey, Qt::ISODate);
        row.dayName = date.isValid() ? locale.dayName(date.dayOfWeek()) : m_day.dateKey;
        if (date.isValid())
            row.dayDate = locale.toString(date, date.year() == currentYear ? QStringLiteral("d MMMM")
                                                                           : QStringLiteral("d MMMM yyyy"));
        m_rows.append(std::move(row));
    }

    void addSession(const JournalSession &session)
    {
        JournalRow row = blank(JournalRow::Kind::Session, session.id);
        row.time = startTime(session.startTime);
        m_rows.append(std::move(row));
        for (const JournalEntry &entry : session.entries)
            addEntry(entry);
    }

private:
    void addEntry(const JournalEntry &entry)
    {
        JournalRow row = blank(JournalRow::Kind::Entry, entry.id);
        row.time = JournalEntry::formatDisplayTime(entry.time);
        const auto parsed = entry.parsedWorkspace();
        row.workspace = parsed ? parsed->label : QString();
        row.text = parsed ? parsed->action : entry.text;
        m_rows.append(std::move(row));
    }

    JournalRow blank(JournalRow::Kind kind, const QString &id)
    {
        JournalRow row;
        row.kind = kind;
        row.dateKey = m_day.dateKey;
        const QString key = QStringLiteral("%1/%2/").arg(m_day.dateKey).arg(int(kind)) + id;
        row.key = QString::number(m_seen[key]++) + u'/' + key;
        return row;
    }

    /// The observer writes a date with its time; by hand it is mostly a time alone.
    static QString startTime(const QString &text)
    {
        const QDateTime begun = QDateTime::fromString(text, Qt::ISODate);
        return JournalEntry::formatDisplayTime(begun.isValid() ? begun.time().toString(QStringLiteral("HH:mm")) : text);
    }

    QList<JournalRow> &m_rows;
    const JournalDay &m_day;
    QHash<QString, int> m_seen;
};

} // namespace

QList<JournalRow> journalRows(const QList<JournalDay> &days, const QSet<QString> &collapsed, int currentYear)
{
    QList<JournalRow> rows;
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
