#include "platform/session/SystemBusFacts.h"

#include "platform/logind/LogindNames.h"
#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/SessionBusAddress.h"

namespace ostrel {

SystemBusFacts readSystemBusFacts()
{
    const GlibHandle<GMainContext> context(g_main_context_new());
    const MainContextScope scope(context.get());
    GlibHandle<GError> error;
    const auto bus = connectToBus(systemBusAddress().toUtf8(), nullptr, error);
    if (!bus)
        return {.state = BusState::Unreachable};
    const BusLine line{.connection = bus.get()};
    SystemBusFacts facts;
    if (const auto isThere = hasOwner(line, LogindNames::service)) {
        facts.state = BusState::Answers;
        facts.isLogindThere = *isThere;
    } else {
        facts.state = BusState::Silent;
    }
    if (facts.isLogindThere)
        facts.doesLogindAnswer =
            readBusFlag(line, {LogindNames::service, LogindNames::path, LogindNames::manager, nullptr},
                        "PreparingForSleep")
                .has_value();
    g_dbus_connection_close_sync(bus.get(), nullptr, nullptr);
    return facts;
}

} // namespace ostrel
