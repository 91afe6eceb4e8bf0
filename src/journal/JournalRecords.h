#pragma once

#include <QList>
#include <QString>
#include <optional>

namespace ostrel {

/// An entry's text of the form "[label] action: …", taken apart.
struct JournalWorkspace {
    QString label;
    QString action;

    bool operator==(const JournalWorkspace &) const = default;
};

/// One bullet of the journal.
struct JournalEntry {
    QString session; ///< the session's identifier, shared by its bullets; "session" before any heading
    QString time;    ///< as it stands between the brackets
    QString text;

    /// Session, time and text; two equal bullets of one session have the same. It is put together when it is asked
    /// for: kept, it would be half of what a journal takes in memory.
    QString id() const { return session + QLatin1Char(':') + time + QLatin1Char(':') + text; }
    /// A time of day as it is shown: "13:07:59" is "1:07 PM". What is no time of day is returned as it is.
    static QString formatDisplayTime(const QString &time);
    /// Absent where the text has another form, or the label or the action is empty.
    std::optional<JournalWorkspace> parsedWorkspace() const;

    bool operator==(const JournalEntry &) const = default;
};

/// The bullets between one session heading and the next.
struct JournalSession {
    QString id; ///< the rest of the heading; may be empty
    QString startTime;
    QList<JournalEntry> entries; ///< in the file's order

    bool operator==(const JournalSession &) const = default;
};

/// One file of the journal.
struct JournalDay {
    QString id;      ///< the same as `dateKey`
    QString dateKey; ///< the file's name without its extension, as in "2024-05-31"
    QList<JournalSession> sessions;

    bool operator==(const JournalDay &) const = default;
};

} // namespace ostrel
