#pragma once

#include "app/CommandResult.h"
#include "app/Platform.h"

#include <QDate>
#include <QString>
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

} // namespace ostrel
