#include "platform/session/SessionProbes.h"

#include "platform/session/BrowserDebugging.h"
#include "platform/session/CaptureChoice.h"
#include "platform/session/SessionBusFacts.h"
#include "platform/session/SessionPlatform.h"
#include "platform/session/SystemBusFacts.h"
#include "platform/session/WaylandScreenFacts.h"
#include "platform/x11/facts/X11ScreenFacts.h"

namespace ostrel {

namespace {

QList<DebuggedBrowserFacts> readDebuggedBrowsers()
{
    QList<DebuggedBrowserFacts> facts;
    for (const auto &[process, port] : makeDebuggingPorts().all())
        facts.append({.process = process, .port = port});
    return facts;
}

} // namespace

DesktopProbes makeDesktopProbes(const QProcessEnvironment &environment)
{
    // Its own, for a thread that may be left behind.
    const auto unavailable = [environment] { return makeForegroundSource(environment)->unavailableFacts(); };
    const auto value = [&environment](const char *name) { return environment.value(QLatin1String(name)); };
    if (isWaylandSession(environment)) {
        const QString display = value("WAYLAND_DISPLAY");
        return {.session = SessionKind::Wayland,
                .display = display,
                .screen =
                    [name = display.toLocal8Bit(), sway = value("SWAYSOCK").toLocal8Bit(),
                     capture = readWaylandCapture(environment)] {
                        return capture == WaylandCapture::Portal ? readPortalScreenFacts(sway)
                                                                 : readWaylandScreenFacts(name, sway);
                    },
                .unavailable = unavailable,
                .bus = readSessionBusFacts,
                .systemBus = readSystemBusFacts,
                .debuggedBrowsers = readDebuggedBrowsers};
    }
    const QString display = value("DISPLAY");
    return {.session = display.isEmpty() ? SessionKind::None : SessionKind::X11,
            .display = display,
            .screen = [name = display.toLocal8Bit()] { return readX11ScreenFacts(name); },
            .unavailable = unavailable,
            .bus = readSessionBusFacts,
            .systemBus = readSystemBusFacts,
            .debuggedBrowsers = readDebuggedBrowsers};
}

} // namespace ostrel
