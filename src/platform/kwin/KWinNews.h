#pragma once

#include <QByteArray>
#include <QList>
#include <QRect>
#include <QString>

#include <optional>

namespace ostrel {

/// A window as KWin tells it.
struct KWinWindow {
    QString id;
    QString parent;              ///< the id of the window that it stays above, such as a dialog's; empty for none
    qint32 pid = 0;              ///< 0 when KWin doesn't know it
    QString windowClass;         ///< the program's name and its class, a blank between them
    QString desktopFile;         ///< the id of the menu entry, without ".desktop"; empty when the program tells none
    QString title;               ///< with what KWin adds to it
    bool isUnresponsive = false; ///< KWin has added a word of its language for that
    bool isPopup = false;        ///< a menu or a hint, which may have no class of its own
    bool isSeen = false;         ///< not minimised, and on the desktop and activity that are shown
    QRect frame;                 ///< with its title, without its shadow; logical pixels
    /// It has just come to be seen, or is seen no more: an effect may draw it anywhere on its way.
    bool isFlying = false;

    bool operator==(const KWinWindow &) const = default;
};

/// All there is at one moment.
struct KWinNews {
    QList<QRect> monitors;
    QList<KWinWindow> windows;
};

/// More than anybody has; the script would tell of more.
inline constexpr qsizetype mostKWinWindows = 1000;

/// @param json in UTF-8, as the script tells it
/// @return nothing for anything else, and for more windows or longer texts than there may be
std::optional<KWinNews> kwinNewsIn(const QByteArray &json);

} // namespace ostrel
