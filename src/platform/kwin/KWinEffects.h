#pragma once

#include <QByteArray>

namespace ostrel {

/// Whether an effect of KWin, by the name that KWin tells, draws windows at other places than their own, or all of the
/// screen at another size. One that is not known does not: there are many, and most of them only change colours.
bool showsWindowsElsewhere(const QByteArray &effect);

} // namespace ostrel
