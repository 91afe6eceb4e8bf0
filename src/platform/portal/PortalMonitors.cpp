#include "platform/portal/PortalMonitors.h"

#include "platform/portal/ShellMonitors.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/SessionBusAddress.h"

namespace ostrel {

ToldMonitors readMonitors(const BusLine &line, const PortalSeams &seams)
{
    const auto hasShell = hasOwner(line, ShellNames::service);
    if (!hasShell)
        return {};
    if (!*hasShell)
        return {.names = seams.compositorsMonitors(), .areTheShells = false};
    // The compositor knows them by other names than those that tokens are kept for.
    const auto told = readShellMonitors(line);
    return {.names = told ? told->shown : QStringList(), .areTheShells = true};
}

ToldMonitors readMonitors(const PortalSeams &seams)
{
    constexpr std::chrono::milliseconds patience{1'000};
    const QByteArray address = seams.busAddress.isEmpty() ? sessionBusAddress().toUtf8() : seams.busAddress;
    const GlibHandle<GMainContext> context(g_main_context_new());
    const MainContextScope scope(context.get());
    const auto bus = address.isEmpty() ? nullptr : connectToBusInTime(address, context.get(), int(patience.count()));
    if (!bus)
        return {};
    ToldMonitors monitors = readMonitors({.connection = bus.get(), .patience = patience}, seams);
    closeBus(bus.get(), context.get());
    return monitors;
}

} // namespace ostrel
