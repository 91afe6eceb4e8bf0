#include "app/popover/PaletteScheme.h"

#include "app/popover/DesktopAppearance.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPalette>

namespace ostrel {

PaletteScheme::PaletteScheme(DesktopAppearance &appearance) : m_appearance(appearance)
{
    qGuiApp->installEventFilter(this);
    adopt();
}

bool PaletteScheme::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == qGuiApp && event->type() == QEvent::ApplicationPaletteChange)
        adopt();
    return false;
}

void PaletteScheme::adopt()
{
    const QPalette palette = QGuiApplication::palette();
    m_appearance.setDark(palette.color(QPalette::WindowText).lightness() > palette.color(QPalette::Window).lightness());
}

} // namespace ostrel
