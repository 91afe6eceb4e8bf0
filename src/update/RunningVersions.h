#pragma once

#include <QString>
#include <QStringList>

namespace ostrel {

/// The names of the folders in `versions` that programs of this user were started from and still run. Programs of
/// others, which this user may not look at, are not counted. Blocks for a moment.
/// @param versions without links in its path
QStringList runningVersions(const QString &versions, const QString &proc = QStringLiteral("/proc"));

} // namespace ostrel
