#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>

namespace ostrel::MenuBarIcon {

/// Points at scale 1.
inline constexpr int size = 18;

/// Five circles joined by five lines; while recording, with a red dot in its top right corner that is set off by a
/// clear ring.
/// @param label the colour of the marks: what the panel writes in
/// @param scale pixels a point
QImage image(bool recording, const QColor &label, qreal scale);

/// The image at the scales that panels ask for: 1, 1.5, 2 and 3.
QIcon icon(bool recording, const QColor &label);

} // namespace ostrel::MenuBarIcon
