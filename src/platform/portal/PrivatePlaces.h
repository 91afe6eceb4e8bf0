#pragma once

#include <QList>
#include <QRect>

#include <chrono>
#include <functional>
#include <optional>

namespace ostrel {

/// Where private windows are, for pictures that show whole monitors. All in logical pixels of the desktop.
struct PrivatePlaces {
    QList<QRect> monitors;
    /// Where private windows are now, and where they were within the last second: a picture may be that old.
    QList<QRect> windows;
    /// Within that second one of them may have been seen anywhere.
    bool mayBeAnywhere = false;
    /// What has been drawn since then may not be told yet: a picture that is younger has to wait.
    std::chrono::milliseconds age{0};
};

/// Asked for every picture, on several threads at once; waits for nothing but a lock. Each question has the age made
/// smaller than the time that has passed since, soon.
/// @param processes whose windows are private whatever the rules say
/// @return absent when nobody can tell
using FindPrivatePlaces = std::function<std::optional<PrivatePlaces>(const QList<qint32> &processes)>;

} // namespace ostrel
