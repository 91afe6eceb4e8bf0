#include "platform/portal/PortalMonitors.h"

#include "platform/portal/ShellMonitors.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/SessionBusAddress.h"

namespace ostrel {

QStringList readMonitors(const BusLine &line, const PortalSeams &seams)
{
    const auto told = readShellMonitors(line);
    return told ? told->shown : seams.compositorsMonitors();
}

QStringList readMonitors(const PortalSeams &seams)
{
    const QByteArray address = seams.busAddress.isEmpty() ? sessionBusAddress().toUtf8() : seams.busAddress;
    const GlibHandle<GMainContext> context(g_main_context_new());
    const MainContextScope scope(context.get());
    const auto bus =
        address.isEmpty() ? nullptr : connectToBusInTime(address, context.get(), int(seams.patience.count()));
    if (!bus)
        return seams.compositorsMonitors();
    const QStringList monitors = readMonitors({.connection = bus.get()}, seams);
    closeBus(bus.get(), context.get());
    return monitors;
}

} // namespace ostrel
