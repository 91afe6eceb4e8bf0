#include "platform/session/SessionPlatform.h"

#include "context/PrivacyRulesFile.h"
#include "platform/atspi/AtspiAccess.h"
#include "platform/atspi/AtspiForegroundSource.h"
#include "platform/atspi/AtspiTree.h"
#include "platform/desktopentry/DesktopEntries.h"
#include "platform/devtools/DevToolsScriptRunner.h"
#include "platform/kwin/KWinWindows.h"
#include "platform/logind/LogindEvents.h"
#include "platform/portal/PortalDisplaySource.h"
#include "platform/portal/PortalScreenCaptureAccess.h"
#include "platform/portal/ScreenCastPortal.h"
#include "platform/session/BrowserDebugging.h"
#include "platform/session/CaptureChoice.h"
#include "platform/session/Unavailable.h"
#include "platform/session/WaylandDisplaySource.h"
#include "platform/session/WaylandForegroundSource.h"
#include "platform/sway/SwayForegroundSource.h"
#include "platform/sway/SwayPrivateWindows.h"
#include "platform/wlroots/WaylandMonitors.h"
#include "platform/wlroots/WaylandPulse.h"
#include "platform/wlroots/WlrDisplaySource.h"
#include "platform/wlroots/WlrScreenCaptureAccess.h"
#include "platform/x11/capture/X11DisplaySource.h"
#include "platform/x11/capture/X11ScreenCaptureAccess.h"
#include "platform/x11/foreground/X11ForegroundSource.h"

#include <utility>

namespace ostrel {

namespace {

void useX11(SessionPlatform &platform, std::function<PrivacyRules()> rules)
{
    // Asked on another thread than the foreground's.
    auto classes = std::make_shared<DesktopEntries>(DesktopEntries::sessionFolders());
    platform.displays = std::make_unique<X11DisplaySource>(
        X11Privacy{.rules = std::move(rules), .bundleIdentifierOf = [classes](const QString &windowClass) {
                       return classes->applicationFor(windowClass).bundleIdentifier;
                   }});
    platform.screenCaptureAccess = std::make_unique<X11ScreenCaptureAccess>();
}

PrivateAreas privateAreasOfSway(SwayPrivateWindows::Rules excludes)
{
    // Asked on another thread than the foreground's.
    auto classes = std::make_shared<DesktopEntries>(DesktopEntries::sessionFolders());
    auto windows =
        std::make_shared<SwayPrivateWindows>(QByteArray(), std::move(excludes), [classes](const QString &appId) {
            return classes->applicationFor(appId).bundleIdentifier;
        });
    return [windows](const QList<qint32> &processes) { return windows->places(processes); };
}

bool isSwaySession(const QProcessEnvironment &environment)
{
    return !environment.value(QStringLiteral("SWAYSOCK")).isEmpty();
}

bool isKdeSession(const QProcessEnvironment &environment)
{
    return environment.value(QStringLiteral("XDG_CURRENT_DESKTOP"))
        .split(QLatin1Char(':'))
        .contains(QStringLiteral("KDE"), Qt::CaseInsensitive);
}

FindPrivatePlaces privatePlacesOfKWin(KWinPrivacy::Rules excludes)
{
    // Asked on other threads than the foreground's.
    auto classes = std::make_shared<DesktopEntries>(DesktopEntries::sessionFolders());
    auto windows = std::make_shared<KWinWindows>(
        KWinPrivacy{.excludes = std::move(excludes), .bundleIdentifierOf = [classes](const QString &windowClass) {
                        return classes->applicationFor(windowClass).bundleIdentifier;
                    }});
    return [windows](const QList<qint32> &processes) -> std::optional<PrivatePlaces> {
        auto places = windows->places(processes);
        if (!places)
            return std::nullopt;
        return PrivatePlaces{.monitors = std::move(places->monitors),
                             .windows = std::move(places->windows),
                             .mayBeAnywhere = places->mayBeAnywhere,
                             .age = places->age};
    };
}

/// Empty where no compositor tells.
FindPrivatePlaces findPrivatePlaces(const SessionPlatform &platform, const QProcessEnvironment &environment)
{
    return isKdeSession(environment) ? privatePlacesOfKWin(platform.excludesWindow) : FindPrivatePlaces();
}

/// PipeWire goes on answering when the compositor hangs.
std::shared_ptr<ScreenCastPortal> makePortal()
{
    PortalSeams seams;
    const auto pulse = std::make_shared<WaylandPulse>(QByteArray(), seams.monotonicTime);
    seams.isCompositorAnswering = [pulse] { return pulse->isAnswering(); };
    const auto monitors = std::make_shared<WaylandMonitors>();
    seams.compositorsMonitors = [monitors] { return monitors->names(); };
    return std::make_shared<ScreenCastPortal>(std::move(seams));
}

/// Whether the compositor gives still pictures is seen at the first use; where it does not, the portal is used.
void useWaylandScreens(SessionPlatform &platform, std::unique_ptr<DisplaySource> screenshots,
                       FindPrivatePlaces privatePlaces)
{
    auto portal = makePortal();
    platform.displays = std::make_unique<WaylandDisplaySource>(
        std::move(screenshots), std::make_unique<PortalDisplaySource>(portal, std::move(privatePlaces)));
    platform.screenCaptureAccess = std::make_unique<WaylandScreenCaptureAccess>(
        std::make_unique<WlrScreenCaptureAccess>(), std::make_unique<PortalScreenCaptureAccess>(portal));
}

void usePortalScreens(SessionPlatform &platform, FindPrivatePlaces privatePlaces)
{
    auto portal = makePortal();
    platform.displays = std::make_unique<PortalDisplaySource>(portal, std::move(privatePlaces));
    platform.screenCaptureAccess = std::make_unique<PortalScreenCaptureAccess>(portal);
}

void useWayland(SessionPlatform &platform, const QProcessEnvironment &environment)
{
    if (readWaylandCapture(environment) == WaylandCapture::Portal)
        usePortalScreens(platform, findPrivatePlaces(platform, environment));
    else if (isSwaySession(environment))
        useWaylandScreens(platform,
                          std::make_unique<WlrDisplaySource>(QByteArray(), WlrCaptureSeams(),
                                                             privateAreasOfSway(platform.excludesWindow)),
                          FindPrivatePlaces());
    else
        useWaylandScreens(platform, std::make_unique<WlrDisplaySource>(), findPrivatePlaces(platform, environment));
}

/// @param reason a sentence: why nothing can be recorded
void useNothing(SessionPlatform &platform, const QString &reason)
{
    platform.displays = std::make_unique<UnavailableDisplaySource>(reason);
    platform.screenCaptureAccess = std::make_unique<UnavailableScreenCapture>();
}

} // namespace

bool isWaylandSession(const QProcessEnvironment &environment)
{
    return !environment.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty();
}

std::unique_ptr<ForegroundSource> makeForegroundSource(const QProcessEnvironment &environment)
{
    const QByteArray xDisplay = environment.value(QStringLiteral("DISPLAY")).toLocal8Bit();
    const bool isWayland = isWaylandSession(environment);
    if (!isWayland && xDisplay.isEmpty())
        return std::make_unique<UnavailableForeground>(QStringLiteral("there is no display (DISPLAY is not set)"));
    auto entries = std::make_shared<DesktopEntries>(DesktopEntries::sessionFolders());
    const auto lookUp = [entries](const QString &name) { return entries->applicationFor(name); };
    if (!isWayland)
        return std::make_unique<X11ForegroundSource>(QByteArray(), lookUp);
    if (isSwaySession(environment))
        return std::make_unique<SwayForegroundSource>(QByteArray(), lookUp);
    // Where no compositor tells which window is in front, its X server and the programs themselves do.
    return std::make_unique<WaylandForegroundSource>(
        xDisplay.isEmpty() ? nullptr : std::make_unique<X11ForegroundSource>(xDisplay, lookUp),
        std::make_unique<AtspiForegroundSource>(lookUp));
}

SessionPlatform makeSessionPlatform(const QProcessEnvironment &environment)
{
    SessionPlatform platform;
    platform.contextAccessibility = std::make_unique<AtspiAccess>();
    platform.permissionAccessibility = std::make_unique<AtspiAccess>();
    platform.accessibilityTree = std::make_unique<AtspiTree>();
    platform.browserScripts = std::make_unique<DevToolsScriptRunner>(makeDebuggingPorts());
    auto rules = std::make_shared<PrivacyRulesFile>();
    platform.excludesWindow = [rules](const WindowIdentity &window) { return rules->current().excludes(window); };
    platform.workspace = std::make_unique<LogindEvents>();
    platform.foreground = makeForegroundSource(environment);
    // Under Wayland, DISPLAY leads to a translation layer whose root window is black: recording it would be a lie.
    if (isWaylandSession(environment))
        useWayland(platform, environment);
    else if (environment.value(QStringLiteral("DISPLAY")).isEmpty())
        useNothing(platform, QStringLiteral("There is no display to record (DISPLAY is not set). Run this within a "
                                            "graphical session, or try `./run --demo`, which brings its own."));
    else
        useX11(platform, [rules] { return rules->current(); });
    return platform;
}

} // namespace ostrel
