#include "platform/portal/PortalOffer.h"

#include "platform/portal/PortalBus.h"
#include "platform/portal/PortalGrantFile.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/BusNames.h"
#include "platform/sessionbus/SessionBusAddress.h"

#include <utility>

namespace ostrel {

namespace {

/// Absent where it has none of them, or does not answer.
std::optional<quint32> versionOfScreenCasts(const BusLine &line)
{
    GlibHandle<GError> error;
    const auto answer = callBus(line, {PortalNames::service, PortalNames::path, BusNames::properties, "Get"},
                                g_variant_new("(ss)", PortalNames::screenCast, "version"), "(v)", error);
    if (!answer)
        return std::nullopt;
    const GlibHandle<GVariant> boxed(g_variant_get_child_value(answer.get(), 0));
    const GlibHandle<GVariant> value(g_variant_get_variant(boxed.get()));
    if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_UINT32))
        return std::nullopt;
    return g_variant_get_uint32(value.get());
}

bool canBeStarted(const BusLine &line)
{
    GlibHandle<GError> error;
    const auto answer =
        callBus(line, {BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "ListActivatableNames"}, nullptr,
                "(as)", error);
    if (!answer)
        return false;
    const GlibHandle<GVariant> names(g_variant_get_child_value(answer.get(), 0));
    for (gsize i = 0; i < g_variant_n_children(names.get()); ++i) {
        const GlibHandle<GVariant> name(g_variant_get_child_value(names.get(), i));
        if (QByteArray(g_variant_get_string(name.get(), nullptr)) == PortalNames::service)
            return true;
    }
    return false;
}

} // namespace

std::optional<PortalOffer> readPortalOffer(const PortalSeams &seams)
{
    const QByteArray address = seams.busAddress.isEmpty() ? sessionBusAddress().toUtf8() : seams.busAddress;
    if (address.isEmpty())
        return std::nullopt;
    const GlibHandle<GMainContext> context(g_main_context_new());
    const MainContextScope scope(context.get());
    const auto bus = connectToBusInTime(address, context.get(), int(seams.patience.count()));
    if (!bus)
        return std::nullopt;
    const BusLine line{.connection = bus.get()};
    PortalOffer offer{.version = {}, .isGranted = PortalGrantFile(seams.grantFile).isGranted()};
    const bool isRunning = hasOwner(line, PortalNames::service).value_or(false);
    if (isRunning)
        offer.version = versionOfScreenCasts(line);
    const bool isThere = isRunning ? offer.version.has_value() : canBeStarted(line);
    closeBus(bus.get(), context.get());
    return isThere ? std::optional(offer) : std::nullopt;
}

} // namespace ostrel
