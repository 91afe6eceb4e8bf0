#pragma once

#include <QList>
#include <QPoint>
#include <QRect>
#include <QSize>

#include <optional>

namespace ostrel {

/// What a portal tells of the monitor that a stream shows, as far as it can be relied on.
struct StreamMonitorFacts {
    std::optional<QPoint> corner; ///< logical pixels of the desktop
    std::optional<QSize> logicalSize;
};

/// Which of the desktop's monitors a stream may show: the one at the told place, or else those whose shape is that of
/// the pictures, of several such ones those of the told size. Each once; none when there is no such monitor.
/// @param picture  pixels
/// @param monitors all there are, in logical pixels of the desktop
QList<QRect> monitorsOfStream(const StreamMonitorFacts &facts, QSize picture, const QList<QRect> &monitors);

} // namespace ostrel
