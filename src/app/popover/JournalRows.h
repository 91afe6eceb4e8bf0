#pragma once

#include "journal/JournalRecords.h"

#include <QHashFunctions>
#include <QList>
#include <QSet>
#include <QString>

namespace ostrel {

/// One line of the journal screen: a day, the beginning of a session in it, or what was done. A journal has thousands,
/// of which a screen shows twenty: a row shares its texts with the journal, and what is shown is made when it is asked
/// for.
struct JournalRow {
    enum class Kind { Day, Session, Entry };

    /// Which row it is, among all; equal in two lists for what is the same.
    struct Key {
        Kind kind = Kind::Day;
        int repetition = 0; ///< how many that are the same but for this come before it in its day
        QString dateKey;    ///< of the day that it belongs to
        QString session = {};
        QString time = {}; ///< of an entry, as it was written
        QString text = {}; ///< of an entry, as it was written

        bool operator==(const Key &) const = default;
    };

    Key key;
    QString startTime = {};  ///< of a session, as it was written; empty where the journal doesn't say
    bool collapsed = false;  ///< of a day
    bool ofThisYear = false; ///< of a day

    /// "Saturday"; the key of a day that no calendar has.
    QString dayName() const;
    /// "21 November", with the year where it is another one; empty as above.
    QString dayDate() const;
    /// "9:04 AM"; what is no time is shown as it was written.
    QString displayTime() const;
    /// Where it was done; may be empty.
    QString workspace() const;
    /// What was done, without the workspace.
    QString text() const;

    bool operator==(const JournalRow &) const = default;

private:
    JournalEntry entry() const;
};

inline std::size_t qHash(const JournalRow::Key &key, std::size_t seed = 0)
{
    return qHashMulti(seed, int(key.kind), key.repetition, key.dateKey, key.session, key.time, key.text);
}

/// The days as lines, in their order, without what lies in the days that are collapsed. Names of days and months are
/// those of the default locale.
QList<JournalRow> journalRows(const QList<JournalDay> &days, const QSet<QString> &collapsed, int currentYear);

} // namespace ostrel
