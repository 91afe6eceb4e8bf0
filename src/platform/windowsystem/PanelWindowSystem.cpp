#include "platform/windowsystem/PanelWindowSystem.h"

#include "app/tray/WaylandPanelDesktop.h"
#include "base/Fault.h"
#include "platform/wlroots/WaylandConnection.h"
#include "platform/x11/panel/X11PanelDesktop.h"

#include <QDir>
#include <QLibraryInfo>

namespace ostrel {

namespace {

QByteArray value(const QProcessEnvironment &environment, const char *name)
{
    return environment.value(QLatin1String(name)).toLocal8Bit();
}

Result<PanelWindowSystem> reachX11(const QProcessEnvironment &environment)
{
    auto opened = X11Connection::open(value(environment, "DISPLAY"));
    if (!opened)
        return std::unexpected(opened.error());
    return PanelWindowSystem{.toolkitPlatform = "xcb",
                             .makeDesktop = [connection = std::shared_ptr(*std::move(opened))] {
                                 return std::make_unique<X11PanelDesktop>(connection);
                             }};
}

PanelWindowSystem elsewhere(const QByteArray &toolkitPlatform)
{
    return {.toolkitPlatform = toolkitPlatform, .makeDesktop = [] { return std::make_unique<WaylandPanelDesktop>(); }};
}

Result<PanelWindowSystem> reachWayland(const QProcessEnvironment &environment)
{
    if (const auto opened = WaylandConnection::open(value(environment, "WAYLAND_DISPLAY")); !opened)
        return std::unexpected(opened.error());
    const QDir plugins(QLibraryInfo::path(QLibraryInfo::PluginsPath) + QLatin1String("/platforms"));
    if (plugins.entryList({QStringLiteral("libqwayland*.so")}, QDir::Files).isEmpty())
        return std::unexpected(faultError(Fault::NoWaylandToolkit));
    return elsewhere("wayland");
}

} // namespace

Result<PanelWindowSystem> choosePanelWindowSystem(const QProcessEnvironment &environment)
{
    const QByteArray wanted = value(environment, "QT_QPA_PLATFORM");
    if (wanted.startsWith("xcb"))
        return reachX11(environment);
    if (wanted.startsWith("wayland"))
        return reachWayland(environment);
    if (!wanted.isEmpty())
        return elsewhere(wanted);
    const bool hasX11 = environment.contains(QStringLiteral("DISPLAY"));
    const bool hasWayland = environment.contains(QStringLiteral("WAYLAND_DISPLAY"));
    if (!hasX11)
        return reachWayland(environment);
    auto x11 = reachX11(environment);
    return x11 || !hasWayland ? std::move(x11) : reachWayland(environment);
}

} // namespace ostrel
