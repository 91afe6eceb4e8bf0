#pragma once

#include <QString>

namespace ostrel {

/// The user's home folder without a trailing slash: $HOME, else what the system's user database says.
QString homeDirectory();

/// "~" is the home folder, "~/rest" lies in it; every other path is returned as it is.
QString expandedPath(const QString &path);

/// The same the other way round: "~" for the home folder and at the beginning of what lies in it.
QString abbreviatedPath(const QString &path);

/// The folder of the program's own files, `~/.ostrel`. It is not created here.
QString stateDirectory();

/// Makes the folder with all its parents, those that are new readable by the user alone.
/// @return whether it exists afterwards; if not, errno says why
bool makePrivateDirectory(const QString &path);

} // namespace ostrel
