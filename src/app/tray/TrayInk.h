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

/// What the icon is drawn in.
struct TrayInk {
    QColor marks;
    /// The opposite of the marks, around them: where nobody can say what is behind the icon, one of the two stands out.
    std::optional<QColor> outline;

    bool operator==(const TrayInk &) const = default;
};

/// The ink that stands out there.
TrayInk trayInk(const TraySurroundings &surroundings);

} // namespace ostrel
