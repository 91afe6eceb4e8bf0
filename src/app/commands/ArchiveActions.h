#pragma once

#include "app/CommandResult.h"
#include "app/Platform.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QDate>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

namespace ostrel {

/// What the options behind `ostrel archive` say, as far as they are given.
struct ArchiveOptions {
    bool json = false;
    std::optional<QString> keyFile;
    QDate from; ///< invalid where it is not given, like the next one
    QDate to;
    QString into; ///< absolute, or beginning with "~"
};

/// `ostrel archive enable`: a new vault, its key shown once, turned on when its user has confirmed that the key is
/// kept; or a paused one, which goes on with the key that it has.
CommandResult enableArchive(const ArchiveOptions &options, const Platform &platform);

/// `ostrel archive export`: follows the export to its end. SIGINT and its like cancel it on the observer; a second one
/// leaves it to itself.
CommandResult exportArchive(const ArchiveOptions &options, const Platform &platform);

/// `ostrel archive target`: shows where the archive lies, or has it lie elsewhere. Before an archive in use gets
/// another place its user is asked.
CommandResult archiveTarget(const QCommandLineParser &parser, const Platform &platform);
/// What only that takes, besides --json.
QList<QCommandLineOption> archiveTargetOptions();
QStringList archiveTargetOptionNames();

/// The path as it is meant in the terminal's folder; one that begins with "~" stays as it is.
QString absoluteFromHere(const QString &path);

} // namespace ostrel
