#include "app/tray/PanelPlacement.h"

#include <algorithm>

namespace ostrel {

QPoint panelPosition(const QRect &icon, const QRect &screen, QSize panel)
{
    // Of a QRect, right() and bottom() are the last pixel, not the edge.
    const int rightEdge = screen.x() + screen.width();
    const int bottomEdge = screen.y() + screen.height();

    int x = icon.x() + icon.width() / 2 - panel.width() / 2;
    x = std::max(x, screen.x() + panelScreenMargin);
    x = std::min(x, rightEdge - panel.width() - panelScreenMargin);

    const int below = icon.y() + icon.height() + panelIconDistance;
    const int above = icon.y() - panelIconDistance - panel.height();
    const bool isInUpperHalf = icon.center().y() < screen.center().y();
    const int wanted = isInUpperHalf ? below : above;
    // Beside an icon in a panel at the left or right there is neither.
    const int y = std::max(screen.y(), std::min(wanted, bottomEdge - panel.height()));
    return {x, y};
}

QSize panelSize(QSize wanted, const QRect &screen)
{
    return {wanted.width(), std::min(wanted.height(), screen.height())};
}

} // namespace ostrel
