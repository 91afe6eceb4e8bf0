#pragma once

#include "base/Error.h"

#include <QString>

namespace ostrel {

/// How much an archive may hold.
struct ArchiveLimits {
    qint64 bytes = qint64(2) * 1024 * 1024 * 1024; ///< of all files together, unpacked
    int entries = 20'000;                          ///< and folders, also those that only stand in names
};

/// Unpacks a tar archive (plain, gzip, xz) into a folder that exists and is empty. Nothing but files and folders with
/// plain relative names is taken: a link, a device, a set-id bit, an absolute name, "..", a name of more than 512 bytes
/// or one that stands twice is an error, and so is more than the limits allow. Files become 0755 or 0644, folders 0755,
/// and all are on the disk when this returns. For a worker. What was unpacked before an error stays.
/// @return nothing, or ArchiveUnsafe, ArchiveNotUnderstood, or what the disk has to say
Result<> unpackArchive(const QString &archive, const QString &directory, const ArchiveLimits &limits = {});

} // namespace ostrel
