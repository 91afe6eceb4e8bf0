#pragma once

namespace ostrel {

class AppearanceSource;
class PanelDesktop;
class PanelDialogs;

/// What the panel needs of the desktop besides what every command does. They outlive whoever is given this.
struct PanelPlatform {
    PanelDialogs &dialogs; ///< those of the `Platform`, which get their window from the application
    PanelDesktop &desktop;
    AppearanceSource &appearance;
};

} // namespace ostrel
