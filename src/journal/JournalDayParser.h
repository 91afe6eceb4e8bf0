#pragma once

#include "journal/JournalRecords.h"

#include <QString>

namespace ostrel {

/// Reads one file's text. Lines that are no heading, start time or bullet are ignored one by one. What stands before
/// the first heading belongs to the session of that heading, and is lost when there is none.
///
/// Linear in the text, without a regular expression and without a copy of any line that is no bullet: the journal
/// screen reads seven such files every two seconds.
JournalDay parseJournalDay(const QString &dateKey, const QString &text);

} // namespace ostrel
