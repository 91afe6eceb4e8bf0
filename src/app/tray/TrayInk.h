#pragma once

#include <QColor>

#include <optional>

namespace ostrel {

/// What is known of the desktop's panel that the icon stands in; little, in most trays.
struct TraySurroundings {
    std::optional<QColor> foreground; ///< what the tray says it draws in
    std::optional<QColor> background; ///< what is seen beside our drawing
    std::optional<bool> wantsDark;    ///< the colour scheme that the user has asked the desktop for
};

/// The colour that stands out there.
QColor trayInk(const TraySurroundings &surroundings);

} // namespace ostrel
