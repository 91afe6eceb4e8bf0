#pragma once

#include "update/Feed.h"

namespace ostrel {

/// Whether a file is, byte for byte, the archive that a release announces, and its makers have signed that release. For
/// a worker: it reads the whole file.
/// @return nothing, or ArchiveSizeWrong, ArchiveHashWrong or ArchiveSignatureWrong
Result<> checkArchive(const QString &path, const Release &release, const UpdateKey &key);

} // namespace ostrel
