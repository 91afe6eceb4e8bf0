#include "platform/session/SessionProbes.h"

#include "platform/session/SessionBusFacts.h"
#include "platform/session/SessionPlatform.h"
#include "platform/x11/facts/X11ScreenFacts.h"

namespace ostrel {

DesktopProbes makeDesktopProbes(const QProcessEnvironment &environment)
{
    const QString display = environment.value(QStringLiteral("DISPLAY"));
    const SessionKind session = isWaylandSession(environment) ? SessionKind::Wayland
                                : display.isEmpty()           ? SessionKind::None
                                                              : SessionKind::X11;
    return {.session = session,
            .display = display,
            .screen = [name = display.toLocal8Bit()] { return readX11ScreenFacts(name); },
            .bus = readSessionBusFacts};
}

} // namespace ostrel
