#include "platform/session/SessionBusFacts.h"

#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/SessionBusAddress.h"

#include <QStringList>

namespace ostrel {

namespace {

constexpr int serviceTimeoutMs = 1000;

struct Call {
    const char *service;
    const char *path;
    const char *interface;
    const char *method;
};

/// @param arguments taken over
/// @return null when it was refused, when nobody was there to answer, or when nobody did in time
GlibHandle<GVariant> call(GDBusConnection *bus, const Call &call, GVariant *arguments)
{
    return GlibHandle<GVariant>(g_dbus_connection_call_sync(bus, call.service, call.path, call.interface, call.method,
                                                            arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                                                            serviceTimeoutMs, nullptr, nullptr));
}

/// A list of names that the bus itself tells; nothing without an answer.
std::optional<QStringList> names(GDBusConnection *bus, const char *method)
{
    const char *service = "org.freedesktop.DBus";
    const auto answer = call(bus, {service, "/org/freedesktop/DBus", service, method}, nullptr);
    if (!answer || !g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(as)")))
        return std::nullopt;
    QStringList names;
    const GlibHandle<GVariant> list(g_variant_get_child_value(answer.get(), 0));
    for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
        const GlibHandle<GVariant> name(g_variant_get_child_value(list.get(), i));
        names.append(QString::fromUtf8(g_variant_get_string(name.get(), nullptr)));
    }
    return names;
}

/// The desktop's accessibility switch; nothing without an answer.
std::optional<bool> isAccessibilityOn(GDBusConnection *bus)
{
    const auto answer = call(bus, {"org.a11y.Bus", "/org/a11y/bus", "org.freedesktop.DBus.Properties", "Get"},
                             g_variant_new("(ss)", "org.a11y.Status", "IsEnabled"));
    if (!answer || !g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(v)")))
        return std::nullopt;
    const GlibHandle<GVariant> boxed(g_variant_get_child_value(answer.get(), 0));
    const GlibHandle<GVariant> value(g_variant_get_variant(boxed.get()));
    if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_BOOLEAN))
        return std::nullopt;
    return g_variant_get_boolean(value.get()) != FALSE;
}

BusFacts without(BusState state)
{
    return {.state = state, .accessibility = {}, .isAccessibilityGranted = {}, .keyring = {}};
}

} // namespace

BusFacts readSessionBusFacts()
{
    const QString address = sessionBusAddress();
    if (address.isEmpty())
        return without(BusState::NoAddress);
    const GlibHandle<GMainContext> context(g_main_context_new());
    const MainContextScope scope(context.get());
    GlibHandle<GError> error;
    const auto bus = connectToBus(address.toUtf8(), nullptr, error);
    if (!bus)
        return without(BusState::Unreachable);

    const auto running = names(bus.get(), "ListNames");
    const auto startable = names(bus.get(), "ListActivatableNames");
    if (!running || !startable)
        return without(BusState::Silent);
    const auto serviceFacts = [&](const char *name) {
        return ServiceFacts{.isRunning = running->contains(QLatin1String(name)),
                            .canBeStarted = startable->contains(QLatin1String(name))};
    };
    BusFacts facts{.state = BusState::Answers,
                   .accessibility = serviceFacts("org.a11y.Bus"),
                   .isAccessibilityGranted = {},
                   .keyring = serviceFacts("org.freedesktop.secrets")};
    if (facts.accessibility.isRunning)
        facts.isAccessibilityGranted = isAccessibilityOn(bus.get());
    g_dbus_connection_close_sync(bus.get(), nullptr, nullptr);
    return facts;
}

} // namespace ostrel
