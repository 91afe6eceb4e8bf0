#include "app/tray/TrayInk.h"

namespace ostrel {

namespace {

constexpr QColor onLight(0x2A, 0x27, 0x23);
constexpr QColor onDark(0xEF, 0xE9, 0xDD);

bool isDark(const QColor &color)
{
    return qGray(color.rgb()) < 128;
}

} // namespace

QColor trayInk(const TraySurroundings &surroundings)
{
    if (surroundings.foreground)
        return *surroundings.foreground;
    if (surroundings.background)
        return isDark(*surroundings.background) ? onDark : onLight;
    // A StatusNotifierItem is drawn by the tray's own process, which can be asked neither for its colours nor for our
    // place. Panels are dark on nearly every desktop, also where programs are light: GNOME's bar is black, and so are
    // those of Xfce and of the bars that are used with sway. They are light where the user has asked for a light
    // desktop in so many words, as KDE says whenever its scheme is light.
    return surroundings.wantsDark.value_or(true) ? onDark : onLight;
}

} // namespace ostrel
