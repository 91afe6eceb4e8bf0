#pragma once

#include "app/tray/TrayInk.h"

#include <QIcon>
#include <QImage>

namespace ostrel::MenuBarIcon {

/// Points at scale 1.
inline constexpr int size = 18;

/// Five circles joined by five lines; while recording, with a red dot in its top right corner that is set off by a
/// clear ring.
/// @param ink   the colour of the marks, and of the outline around them if they need one
/// @param scale pixels a point
QImage image(bool recording, const TrayInk &ink, qreal scale);

/// The image at the scales that panels ask for: 1, 1.5, 2 and 3.
QIcon icon(bool recording, const TrayInk &ink);

} // namespace ostrel::MenuBarIcon
