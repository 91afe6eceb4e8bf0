#pragma once

#include <QString>

namespace ostrel::FileAccessPermission {

/// Whether a file can be made in the folder and removed again. The folder is created when it is not there, for the
/// user alone; the probe file never remains. Any thread; blocks on the disk.
/// @param outputDirectory may begin with "~"; an empty path is nowhere
bool canWrite(const QString &outputDirectory);

} // namespace ostrel::FileAccessPermission
