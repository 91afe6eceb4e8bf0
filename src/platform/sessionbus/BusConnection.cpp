#include "platform/sessionbus/BusConnection.h"

namespace ostrel {

namespace {

// GLib's flags are enumerations. NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
constexpr auto flags = GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                            G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);

/// What an attempt to connect leaves behind.
struct Attempt {
    GlibHandle<GDBusConnection> connection;
    bool finished = false;
};

void takeConnection(GObject * /*source*/, GAsyncResult *result, gpointer attempt)
{
    auto *const target = static_cast<Attempt *>(attempt);
    target->connection.reset(g_dbus_connection_new_for_address_finish(result, nullptr));
    target->finished = true;
}

gboolean cancel(gpointer cancellable)
{
    g_cancellable_cancel(static_cast<GCancellable *>(cancellable));
    return G_SOURCE_REMOVE;
}

} // namespace

GlibHandle<GDBusConnection> connectToBus(const QByteArray &address, GCancellable *cancellable,
                                         GlibHandle<GError> &error)
{
    return GlibHandle<GDBusConnection>(
        g_dbus_connection_new_for_address_sync(address.constData(), flags, nullptr, cancellable, ErrorOut(error)));
}

GlibHandle<GDBusConnection> connectToBusInTime(const QByteArray &address, GMainContext *context, int timeoutMs)
{
    const GlibHandle<GCancellable> cancellable(g_cancellable_new());
    const GlibHandle<GSource> timer(g_timeout_source_new(guint(timeoutMs)));
    g_source_set_callback(timer.get(), &cancel, cancellable.get(), nullptr);
    g_source_attach(timer.get(), context);

    Attempt attempt;
    g_dbus_connection_new_for_address(address.constData(), flags, nullptr, cancellable.get(), &takeConnection,
                                      &attempt);
    while (!attempt.finished)
        g_main_context_iteration(context, TRUE);
    g_source_destroy(timer.get());
    return std::move(attempt.connection);
}

} // namespace ostrel
