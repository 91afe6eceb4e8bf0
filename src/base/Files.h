#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QString>

namespace ostrel {

/// The longest file that `readFile` takes, in bytes: far more than any that people or this system write.
constexpr qsizetype longestFile = qsizetype(64) * 1024 * 1024;

/// The whole content of a regular file, or of a link to one. A folder, a pipe or device, a missing, an unreadable or a
/// too long file is an error. Any thread; blocks on the disk alone.
Result<QByteArray> readFile(const QString &path);

/// Replaces a regular file: temporary file beside it, flushed to the disk, then renamed, so that a reader and a crash
/// see the old bytes or the new ones. Missing parent folders are made, for the user alone. The file is readable by the
/// user alone. Any thread; blocks.
Result<> writeFileAtomically(const QString &path, const QByteArray &bytes);

/// Makes a file that is not there yet, flushed to the disk and readable by the user alone. What has that name already,
/// a link to nowhere included, stays as it is and is an error. Any thread; blocks.
Result<> writeNewFile(const QString &path, const QByteArray &bytes);

/// Gives a file that can't be understood a second name, "<path>.damaged" or with a number, so that replacing it
/// destroys nothing. Any thread; blocks.
/// @return the second name
Result<QString> keepDamagedFile(const QString &path);

/// A regular file that this user may execute.
bool isExecutableFile(const QString &path);

} // namespace ostrel
