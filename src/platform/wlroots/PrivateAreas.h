#pragma once

#include <QList>
#include <QRect>

#include <functional>
#include <optional>

namespace ostrel {

/// Tells where windows are that must be in no picture, with their title bars: those that the privacy rules exclude and
/// those of the given processes. Logical pixels on the compositor's desktop; rectangles may overlap, and reach over the
/// outputs' edges. Absent when it can't be found out now. Called on the capturing thread; may block for 250 ms.
using PrivateAreas = std::function<std::optional<QList<QRect>>(const QList<qint32> &processes)>;

} // namespace ostrel
