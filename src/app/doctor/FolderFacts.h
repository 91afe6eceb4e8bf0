#pragma once

#include <QString>

namespace ostrel {

/// Whether files can be made in a folder.
enum class Writability {
    Tried,     ///< one was made there that has no name and was gone at once
    Permitted, ///< the permissions say so; the file system does not let one try without a trace
    Refused,
};

/// A folder that the program writes to, or would make.
struct FolderFacts {
    QString path;        ///< absolute; empty where the settings name none
    bool exists = false; ///< as a folder
    QString tried;       ///< the folder itself, or the nearest one above it that exists
    bool isOurs = false; ///< `tried` belongs to this user
    Writability writability = Writability::Refused;
    int errorNumber = 0;  ///< why it was refused
    qint64 freeBytes = 0; ///< for this user
};

/// Looks at a folder and changes nothing. Blocks on the disk.
/// @param path may begin with "~"
FolderFacts readFolderFacts(const QString &path);

} // namespace ostrel
