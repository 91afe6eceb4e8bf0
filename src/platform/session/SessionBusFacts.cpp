#include "platform/session/SessionBusFacts.h"

#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/BusNames.h"
#include "platform/sessionbus/SessionBusAddress.h"

#include <QStringList>

namespace ostrel {

namespace {

/// A list of names that the bus itself tells; nothing without an answer.
std::optional<QStringList> names(const BusLine &line, const char *method)
{
    GlibHandle<GError> error;
    const auto answer =
        callBus(line, {BusNames::daemon, BusNames::daemonPath, BusNames::daemon, method}, nullptr, "(as)", error);
    if (!answer)
        return std::nullopt;
    QStringList names;
    const GlibHandle<GVariant> list(g_variant_get_child_value(answer.get(), 0));
    for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
        const GlibHandle<GVariant> name(g_variant_get_child_value(list.get(), i));
        names.append(QString::fromUtf8(g_variant_get_string(name.get(), nullptr)));
    }
    return names;
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

    const BusLine line{.connection = bus.get()};
    const auto running = names(line, "ListNames");
    const auto startable = names(line, "ListActivatableNames");
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
        facts.isAccessibilityGranted =
            readBusFlag(line, {"org.a11y.Bus", "/org/a11y/bus", "org.a11y.Status", nullptr}, "IsEnabled");
    g_dbus_connection_close_sync(bus.get(), nullptr, nullptr);
    return facts;
}

} // namespace ostrel
