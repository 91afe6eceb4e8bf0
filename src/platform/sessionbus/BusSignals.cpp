#include "platform/sessionbus/BusSignals.h"

#include "platform/sessionbus/BusNames.h"

namespace ostrel {

BusSignals::~BusSignals()
{
    for (const Listening &each : m_listening)
        g_dbus_connection_signal_unsubscribe(m_connection, each.id);
}

void BusSignals::listen(const BusSignal &signal, Handler handler)
{
    Listening &listening = m_listening.emplace_back(
        Listening{.type = G_VARIANT_TYPE(signal.type), .handler = std::move(handler), .id = 0});
    const GDBusSignalCallback receive = [](GDBusConnection *, const gchar *, const gchar *, const gchar *,
                                           const gchar *, GVariant *arguments, gpointer data) {
        const auto *meant = static_cast<const Listening *>(data);
        if (g_variant_is_of_type(arguments, meant->type) == FALSE)
            return;
        const Handler keep = meant->handler; // it may end the listening
        keep(arguments);
    };
    listening.id = g_dbus_connection_signal_subscribe(m_connection, signal.sender, signal.interface, signal.name,
                                                      signal.path, signal.firstArgument, G_DBUS_SIGNAL_FLAGS_NONE,
                                                      receive, &listening, nullptr);
}

void BusSignals::listenToOwner(const char *service, std::function<void(bool)> handler)
{
    listen({.sender = BusNames::daemon,
            .path = BusNames::daemonPath,
            .interface = BusNames::daemon,
            .name = "NameOwnerChanged",
            .firstArgument = service,
            .type = "(sss)"},
           [handler = std::move(handler)](GVariant *arguments) {
               const GlibHandle<GVariant> newOwner(g_variant_get_child_value(arguments, 2));
               handler(*g_variant_get_string(newOwner.get(), nullptr) != '\0');
           });
}

} // namespace ostrel
