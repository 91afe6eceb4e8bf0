#include "platform/session/WaylandScreenFacts.h"

#include "app/doctor/TryDisplays.h"
#include "base/Fault.h"
#include "platform/portal/PortalOffer.h"
#include "platform/sway/SwayConnection.h"
#include "platform/wlroots/WlrDisplaySource.h"

namespace ostrel {

namespace {

std::optional<WindowManagerFacts> trySway(const QByteArray &socket)
{
    if (socket.isEmpty())
        return std::nullopt;
    constexpr std::chrono::milliseconds patience{1'000};
    return WindowManagerFacts{.name = QStringLiteral("sway"),
                              .tellsActiveWindow = askSway(socket, SwayQuestion::Tree, patience).has_value()};
}

std::optional<PortalFacts> lookAtPortal()
{
    constexpr std::chrono::milliseconds patience{1'000};
    const auto offer = readPortalOffer({.patience = patience});
    if (!offer)
        return std::nullopt;
    return PortalFacts{.version = offer->version, .isGranted = offer->isGranted};
}

} // namespace

Result<ScreenFacts> readWaylandScreenFacts(const QByteArray &display, const QByteArray &swaySocket)
{
    WlrDisplaySource source(display);
    auto displays = tryDisplays(source);
    ScreenFacts facts;
    if (!displays && isFault(displays.error(), Fault::NoScreencopy))
        facts.portal = lookAtPortal();
    if (!displays && !facts.portal)
        return std::unexpected(displays.error());
    if (displays)
        facts.displays = *std::move(displays);
    facts.windowManager = trySway(swaySocket);
    return facts;
}

Result<ScreenFacts> readPortalScreenFacts(const QByteArray &swaySocket)
{
    ScreenFacts facts;
    facts.portal = lookAtPortal();
    if (!facts.portal)
        return std::unexpected(faultError(Fault::NoScreenPortal, QStringLiteral("the session bus knows none")));
    facts.portal->isChosen = true;
    facts.windowManager = trySway(swaySocket);
    return facts;
}

} // namespace ostrel
