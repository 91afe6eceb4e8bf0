#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

namespace ostrel {

/// How far the panel stays away from the screen's left and right edges, and from the icon. Points.
inline constexpr int panelScreenMargin = 8;
inline constexpr int panelIconDistance = 5;

/// Where the top left corner of the panel goes: centred below the icon, or above it where the room is there, as at a
/// desktop's bottom panel. Where the screen is narrower than the panel and its margins, its right edge wins.
/// @param icon     desktop coordinates, y downwards
/// @param screen   what desktop panels leave free of the icon's screen
QPoint panelPosition(const QRect &icon, const QRect &screen, QSize panel);

/// What the panel takes of the size it wants: no more height than the screen has, where its pages scroll.
QSize panelSize(QSize wanted, const QRect &screen);

} // namespace ostrel
