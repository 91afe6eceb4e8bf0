#pragma once

#include "journal/JournalRecords.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

namespace ostrel {

/// Reads the observer's journal: one Markdown file a day, directly in one folder. It never writes there. Nothing is
/// kept between calls, and nothing fails: what can't be read is left out. Any thread; blocks for the files.
class JournalReader
{
public:
    /// @param outputDirectory as configured; may begin with "~"
    explicit JournalReader(QString outputDirectory);

    /// The newest days, newest first. `limit` counts files: one that is not valid UTF-8 is not made up for.
    QList<JournalDay> readDays(qint64 limit) const;

    /// One day by its key ("2024-05-31"); absent when there is no such file, or it can't be read.
    std::optional<JournalDay> readDay(const QString &dateKey) const;

private:
    QStringList dateKeys() const;

    QString m_outputDirectory;
};

} // namespace ostrel
