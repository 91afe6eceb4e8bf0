#pragma once

#include "journal/JournalRecords.h"

#include <QList>
#include <QSet>
#include <QString>

namespace ostrel {

/// One line of the journal screen: a day, the beginning of a session in it, or what was done.
struct JournalRow {
    enum class Kind { Day, Session, Entry };

    Kind kind = Kind::Day;
    QString key;     ///< which row it is, among all; equal in two lists for what is the same
    QString dateKey; ///< of the day that it belongs to

    QString dayName; ///< "Saturday"; the key of a day that no calendar has
    QString dayDate; ///< "21 November", with the year where it is another one; empty as above
    bool collapsed = false;

    QString time;      ///< "9:04 AM"; of a session when it began, empty where the journal doesn't say
    QString workspace; ///< where it was done; may be empty
    QString text;

    bool operator==(const JournalRow &) const = default;
};

/// The days as lines, in their order, without what lies in the days that are collapsed. Names of days and months are
/// those of the default locale.
QList<JournalRow> journalRows(const QList<JournalDay> &days, const QSet<QString> &collapsed, int currentYear);

} // namespace ostrel
