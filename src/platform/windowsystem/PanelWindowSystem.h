#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QProcessEnvironment>

#include <functional>
#include <memory>

namespace ostrel {

class PanelDesktop;

/// Where the panel and its icon are shown.
struct PanelWindowSystem {
    QByteArray toolkitPlatform; ///< the toolkit's name for it
    /// To be called once there is an application.
    std::function<std::unique_ptr<PanelDesktop>()> makeDesktop;
};

/// Chooses it and makes sure that it can be reached: the toolkit ends the process where it can't. Call it before there
/// is an application. QT_QPA_PLATFORM decides; else it is X11 where that can be reached, also XWayland on a Wayland
/// desktop, else Wayland. A window places itself under its icon only on X11. On Wayland the compositor places it, in
/// the middle as a rule: the protocol has no way to ask for a place on the screen, and popups need a parent window,
/// which an icon in another program's tray is not.
/// @return Fault::NoXDisplay, NoWaylandDisplay, TimedOut, NoWaylandToolkit
Result<PanelWindowSystem> choosePanelWindowSystem(const QProcessEnvironment &environment);

} // namespace ostrel
