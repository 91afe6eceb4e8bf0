#pragma once

#include "observer/ArchiveTarget.h"

#include <QString>

namespace ostrel {

inline const QString getTarget = QStringLiteral("GET /api/archive/target");
inline const QString putTarget = QStringLiteral("PUT /api/archive/target");

/// An archive's place, with nothing said of it but the path.
inline ArchiveTarget folderTarget(const QString &path)
{
    ArchiveTarget target;
    target.kind = ArchiveTarget::Kind::Folder;
    target.path = path;
    return target;
}

} // namespace ostrel
