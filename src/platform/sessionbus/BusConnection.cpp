#include "platform/sessionbus/BusConnection.h"

#include <memory>

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

/// How far the closing of a connection has come.
struct Closing {
    bool isTold = false;    ///< the connection has said that it is closed
    bool isCarried = false; ///< the request to close it is answered
    bool isGivenUp = false;

    bool isOver() const { return (isTold && isCarried) || isGivenUp; }
};

gboolean giveUp(gpointer closing)
{
    static_cast<Closing *>(closing)->isGivenUp = true;
    return G_SOURCE_REMOVE;
}

constexpr guint closingPatienceMs = 1000;

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

void closeBus(GDBusConnection *connection, GMainContext *context)
{
    const auto shared = std::make_shared<Closing>();
    Closing &closing = *shared;
    closing.isTold = g_dbus_connection_is_closed(connection) != FALSE;
    const auto told =
        +[](GDBusConnection *, gboolean, GError *, gpointer self) { static_cast<Closing *>(self)->isTold = true; };
    const gulong handler = g_signal_connect(connection, "closed", G_CALLBACK(told), &closing);
    const GlibHandle<GSource> timer(g_timeout_source_new(closingPatienceMs));
    g_source_set_callback(timer.get(), &giveUp, &closing, nullptr);
    g_source_attach(timer.get(), context);

    // The answer may come after we have given up.
    const auto carried = +[](GObject *, GAsyncResult *, gpointer kept) {
        const std::unique_ptr<std::shared_ptr<Closing>> mine(static_cast<std::shared_ptr<Closing> *>(kept));
        (*mine)->isCarried = true;
    };
    g_dbus_connection_close(connection, nullptr, carried, std::make_unique<std::shared_ptr<Closing>>(shared).release());
    while (!closing.isOver())
        g_main_context_iteration(context, TRUE);
    g_source_destroy(timer.get());
    g_signal_handler_disconnect(connection, handler);
}

} // namespace ostrel
