#pragma once

#include <QStringList>

namespace ostrel {

/// What the privacy rules hold unless the user says otherwise, as it is written into the user's file.

/// Desktop-file ids without ".desktop": password managers, and a browser whose windows are all private.
QStringList builtInApplications();
/// The same programs where they call their windows otherwise.
QStringList builtInWindowClasses();
/// Titles of private browser windows. A browser puts its own name last, so a page can't imitate or mention them.
QStringList builtInTitlePatterns();

} // namespace ostrel
