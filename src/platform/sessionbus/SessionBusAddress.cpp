#include "platform/sessionbus/SessionBusAddress.h"

#include <QFileInfo>

namespace ostrel {

QString sessionBusAddress()
{
    const QString address = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
    if (!address.isEmpty())
        return address.startsWith(QLatin1String("autolaunch:")) ? QString() : address;
    const QString runtimeFolder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QString socket = runtimeFolder + QLatin1String("/bus");
    if (runtimeFolder.isEmpty() || !QFileInfo::exists(socket))
        return {};
    return QLatin1String("unix:path=") + socket;
}

QString systemBusAddress()
{
    const QString address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS");
    return address.isEmpty() ? QStringLiteral("unix:path=/run/dbus/system_bus_socket") : address;
}

} // namespace ostrel
