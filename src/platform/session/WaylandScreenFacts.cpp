#include "platform/session/WaylandScreenFacts.h"

#include "app/doctor/TryDisplays.h"
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

} // namespace

Result<ScreenFacts> readWaylandScreenFacts(const QByteArray &display, const QByteArray &swaySocket)
{
    WlrDisplaySource source(display);
    auto displays = tryDisplays(source);
    if (!displays)
        return std::unexpected(displays.error());
    ScreenFacts facts;
    facts.displays = *std::move(displays);
    facts.windowManager = trySway(swaySocket);
    return facts;
}

} // namespace ostrel
