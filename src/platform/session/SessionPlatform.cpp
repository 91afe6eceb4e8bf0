#include "platform/session/SessionPlatform.h"

#include "platform/atspi/AtspiAccess.h"
#include "platform/desktopentry/DesktopEntries.h"
#include "platform/session/Unavailable.h"
#include "platform/x11/capture/X11DisplaySource.h"
#include "platform/x11/capture/X11ScreenCaptureAccess.h"
#include "platform/x11/foreground/X11ForegroundSource.h"

namespace ostrel {

namespace {

void useX11(SessionPlatform &platform)
{
    platform.displays = std::make_unique<X11DisplaySource>();
    platform.screenCaptureAccess = std::make_unique<X11ScreenCaptureAccess>();
    auto entries = std::make_shared<DesktopEntries>(DesktopEntries::sessionFolders());
    platform.foreground = std::make_unique<X11ForegroundSource>(
        QByteArray(), [entries](const QString &windowClass) { return entries->applicationFor(windowClass); });
}

void useNothing(SessionPlatform &platform, const QString &reason)
{
    platform.displays = std::make_unique<UnavailableDisplaySource>(reason);
    platform.screenCaptureAccess = std::make_unique<UnavailableScreenCapture>();
    platform.foreground = std::make_unique<UnavailableForeground>();
}

} // namespace

bool isWaylandSession(const QProcessEnvironment &environment)
{
    return !environment.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty();
}

SessionPlatform makeSessionPlatform(const QProcessEnvironment &environment)
{
    SessionPlatform platform;
    platform.contextAccessibility = std::make_unique<AtspiAccess>();
    platform.permissionAccessibility = std::make_unique<AtspiAccess>();
    // Under Wayland, DISPLAY leads to a translation layer whose root window is black: recording it would be a lie.
    if (isWaylandSession(environment))
        useNothing(platform, QStringLiteral("This is a Wayland session, which this version cannot record. "
                                            "Log in with an X11 session to record."));
    else if (environment.value(QStringLiteral("DISPLAY")).isEmpty())
        useNothing(platform, QStringLiteral("There is no display to record (DISPLAY is not set). Run this within a "
                                            "graphical X11 session, or try `./run --demo`, which brings its own."));
    else
        useX11(platform);
    return platform;
}

} // namespace ostrel
