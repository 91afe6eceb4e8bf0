#pragma once

#include <QRectF>
#include <QString>

namespace ostrel {

/// One recorded display as the active-display rule sees it.
struct ActiveDisplayCandidate {
    QString displayId; ///< the 32-bit identifier in decimal
    QString displayLabel;
    QRectF bounds; ///< desktop coordinates, origin at the main display's top-left corner, y downwards

    bool operator==(const ActiveDisplayCandidate &) const = default;
};

/// The display that the user works on, and why it was judged so.
struct ActiveDisplaySelection {
    QString displayId;
    QString displayLabel;
    QString reason; ///< "focusedWindow" or "mouse"

    bool operator==(const ActiveDisplaySelection &) const = default;
};

} // namespace ostrel
