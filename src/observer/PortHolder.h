#pragma once

#include "base/Error.h"

#include <QString>
#include <QStringList>
#include <optional>

#include <sys/types.h>

namespace ostrel {

/// The program that listens on a port, for messages about it.
struct PortHolder {
    uid_t user = 0;
    QString userName; ///< the user's number where the system has no name for it
    /// Absent where the process can't be seen: mostly another user's.
    std::optional<qint64> processId;
    QStringList commandLine;

    /// The file name of the program; empty where it can't be seen.
    QString program() const;
    /// Whether it looks like an observer, ours or somebody else's.
    bool isObserver() const;
};

/// Finds out who listens on a port of 127.0.0.1. It looks at every process that this user may look at, which takes some
/// milliseconds. Any thread.
/// @return nothing when nobody does; the error of `portOwner`
Result<std::optional<PortHolder>> portHolder(quint16 port, const QString &proc = QStringLiteral("/proc"));

} // namespace ostrel
