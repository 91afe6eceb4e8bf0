#pragma once

#include <QList>
#include <QRect>

#include <functional>
#include <optional>

namespace ostrel {

/// Where private windows are, for pictures that show whole monitors. All in logical pixels of the desktop.
struct PrivatePlaces {
    QList<QRect> monitors;
    /// Where private windows are now, and where they were within the last moments: a picture may be that old.
    QList<QRect> windows;
};

/// Asked for every picture, on several threads at once; waits for nothing but a lock.
/// @param processes whose windows are private whatever the rules say
/// @return absent when nobody can tell
using FindPrivatePlaces = std::function<std::optional<PrivatePlaces>(const QList<qint32> &processes)>;

} // namespace ostrel
