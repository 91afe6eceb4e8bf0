#include "platform/sessionbus/BusCall.h"

#include "platform/sessionbus/BusNames.h"

namespace ostrel {

namespace {

GlibHandle<GVariant> firstOf(const GlibHandle<GVariant> &tuple)
{
    return GlibHandle<GVariant>(g_variant_get_child_value(tuple.get(), 0));
}

} // namespace

GlibHandle<GVariant> callBus(const BusLine &line, const BusMethod &method, GVariant *arguments, const char *answerType,
                             GlibHandle<GError> &error)
{
    return GlibHandle<GVariant>(
        g_dbus_connection_call_sync(line.connection, method.service, method.path, method.interface, method.name,
                                    arguments, G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NO_AUTO_START,
                                    int(line.patience.count()), line.cancellable, ErrorOut(error)));
}

std::optional<bool> readBusFlag(const BusLine &line, const BusMethod &object, const char *property)
{
    GlibHandle<GError> error;
    const auto answer = callBus(line, {object.service, object.path, BusNames::properties, "Get"},
                                g_variant_new("(ss)", object.interface, property), "(v)", error);
    if (!answer)
        return std::nullopt;
    return flagIn(GlibHandle<GVariant>(g_variant_get_variant(firstOf(answer).get())).get());
}

std::optional<bool> hasOwner(const BusLine &line, const char *service)
{
    GlibHandle<GError> error;
    const auto answer = callBus(line, {BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "NameHasOwner"},
                                g_variant_new("(s)", service), "(b)", error);
    return answer ? flagIn(firstOf(answer).get()) : std::nullopt;
}

std::optional<bool> flagIn(GVariant *value)
{
    if (!g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN))
        return std::nullopt;
    return g_variant_get_boolean(value) != FALSE;
}

} // namespace ostrel
