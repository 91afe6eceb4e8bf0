#include "platform/sessionbus/BusConnection.h"

namespace ostrel {

GlibHandle<GDBusConnection> connectToBus(const QByteArray &address, GCancellable *cancellable,
                                         GlibHandle<GError> &error)
{
    // GLib's flags are enumerations. NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
    constexpr auto flags = GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return GlibHandle<GDBusConnection>(
        g_dbus_connection_new_for_address_sync(address.constData(), flags, nullptr, cancellable, ErrorOut(error)));
}

} // namespace ostrel
