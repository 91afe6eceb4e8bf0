#pragma once

#include "platform/sessionbus/GlibHandles.h"

#include <functional>
#include <list>

namespace ostrel {

/// Which signals are meant. Null is any.
struct BusSignal {
    const char *sender;
    const char *path;
    const char *interface;
    const char *name;
    const char *firstArgument = nullptr; ///< when it is text
    const char *type = "()";             ///< of all arguments; signals of another type are nobody's and are dropped
};

/// Listens to signals of one connection until it is destroyed, which may happen within a handler. The thread of the
/// connection, which is told while it runs its `BusLoop`.
class BusSignals
{
public:
    /// @param arguments a tuple of the signal's type
    using Handler = std::function<void(GVariant *arguments)>;

    explicit BusSignals(GDBusConnection *connection) : m_connection(connection) {}
    BusSignals(const BusSignals &) = delete;
    BusSignals &operator=(const BusSignals &) = delete;
    ~BusSignals();

    void listen(const BusSignal &signal, Handler handler);
    /// Calls back with true when somebody has taken the name of a service, with false when nobody has it any more.
    void listenToOwner(const char *service, std::function<void(bool isThere)> handler);

private:
    struct Listening {
        const GVariantType *type = nullptr;
        Handler handler;
        guint id = 0;
    };

    GDBusConnection *const m_connection;
    std::list<Listening> m_listening;
};

} // namespace ostrel
