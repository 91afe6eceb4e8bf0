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

TrayInk trayInk(const TraySurroundings &surroundings)
{
    if (surroundings.foreground)
        return {.marks = *surroundings.foreground, .outline = {}};
    if (surroundings.background)
        return {.marks = isDark(*surroundings.background) ? onDark : onLight, .outline = {}};
    // A StatusNotifierItem is drawn by the tray's own process, which can be asked neither for its colours nor for our
    // place. Most panels are dark, also where programs are light: GNOME's bar is black, and so are those of the bars
    // that are used with sway. They are light where the user has asked for a light desktop in so many words, as KDE
    // says whenever its scheme is light. Both are guesses; Xfce's panel, for one, is light unless told otherwise.
    const bool isTakenForDark = surroundings.wantsDark.value_or(true);
    return {.marks = isTakenForDark ? onDark : onLight, .outline = isTakenForDark ? onLight : onDark};
}

} // namespace ostrel
