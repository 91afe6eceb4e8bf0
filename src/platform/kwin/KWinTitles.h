#pragma once

#include <QString>
#include <QStringList>

namespace ostrel {

/// What a window's own title may be: the one that KWin shows, and the same without what KWin adds at its end: a number
/// for the second window of one title, the host of an X program that runs elsewhere, the window's shortcut, and a word
/// for a program that does not answer. Rules go by what the program says.
QStringList possibleTitles(const QString &shown, bool isUnresponsive);

} // namespace ostrel
