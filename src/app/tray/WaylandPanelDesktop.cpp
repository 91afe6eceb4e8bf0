#include "app/tray/WaylandPanelDesktop.h"

#include <QRegion>
#include <QWindow>

namespace ostrel {

void WaylandPanelDesktop::setShadow(QWindow &window, int width)
{
    // On Wayland a mask says where the window takes clicks, and cuts nothing off.
    const QRect whole({}, window.size());
    window.setMask(width > 0 ? QRegion(whole.marginsRemoved({width, width, width, width})) : QRegion());
}

} // namespace ostrel
