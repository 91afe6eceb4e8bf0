#pragma once

#include <QByteArray>
#include <QRectF>
#include <QString>

#include <optional>

namespace ostrel {

/// The window that has the focus, as sway's tree describes it. What the tree does not tell is absent.
struct SwayFocus {
    QString windowClass;         ///< the app id; under XWayland the class
    QString title;               ///< empty where the window has none
    qint32 pid = 0;              ///< 0 where it is not told
    std::optional<QRectF> frame; ///< with its title bar; logical pixels from the main display's corner

    bool operator==(const SwayFocus &) const = default;
};

/// @param json the answer to SwayQuestion::Tree
/// @return absent where no window has the focus, and where the text is not a tree
std::optional<SwayFocus> focusIn(const QByteArray &json);

} // namespace ostrel
