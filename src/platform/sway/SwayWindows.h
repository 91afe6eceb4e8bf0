#pragma once

#include <QByteArray>
#include <QList>
#include <QRect>
#include <QString>

#include <optional>

namespace ostrel {

/// A window of which something may be on the screen. What the tree does not tell is absent.
struct SwayWindow {
    QString windowClass; ///< the app id; under XWayland both parts of WM_CLASS, a blank between them
    QString title;
    qint32 pid = 0; ///< 0 where it is not told
    /// Where it and its title are drawn at the most, logical pixels on sway's desktop. Of a window behind its tab that
    /// is the tab alone.
    QList<QRect> places;

    bool operator==(const SwayWindow &) const = default;
};

/// @param json the answer to SwayQuestion::Tree
/// @return absent where the text is not a tree, or does not say where a window is
std::optional<QList<SwayWindow>> windowsShownIn(const QByteArray &json);

} // namespace ostrel
