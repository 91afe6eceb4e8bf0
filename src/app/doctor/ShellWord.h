#pragma once

#include <QString>

namespace ostrel {

/// A path as people read it: what lies in the home folder begins with "~".
QString shownPath(const QString &path);

/// A path as it can be pasted into a command: the same, quoted where the shell would take it apart.
QString shellWord(const QString &path);

} // namespace ostrel
