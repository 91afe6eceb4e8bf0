#pragma once

#include "platform/sessionbus/GlibHandles.h"

#include <QByteArray>

#include <functional>

namespace ostrel {

/// A service on a test's bus, which does what the test says. Calls come on a thread of GLib's; everything here is for
/// any thread.
class PlayedService
{
public:
    /// @return false for a call that it doesn't know
    using Handler = std::function<bool(GDBusMessage *call)>;

    PlayedService(const QByteArray &busAddress, const char *name, Handler handler);
    PlayedService(const PlayedService &) = delete;
    PlayedService &operator=(const PlayedService &) = delete;
    ~PlayedService();

    /// @param body taken over; may be null
    void reply(GDBusMessage *call, GVariant *body, GUnixFDList *files = nullptr);

    struct Signal {
        const char *destination; ///< null: whoever listens
        const char *path;
        const char *interface;
        const char *name;
    };
    /// @param body taken over; may be null
    void tell(const Signal &signal, GVariant *body = nullptr);
    struct Method {
        QByteArray destination;
        const char *path;
        const char *interface;
        const char *name;
    };
    /// Calls somebody else and waits for the answer. Not from within the handler.
    /// @param body taken over; may be null
    /// @return the name of the error; empty without one
    QByteArray call(const Method &method, GVariant *body);
    /// Returns when the bus has passed on all that was told. Not from within the handler.
    void waitUntilTold();

private:
    static GDBusMessage *filter(GDBusConnection *connection, GDBusMessage *message, gboolean incoming, gpointer self);

    const Handler m_handler;
    const GlibHandle<GMainContext> m_context;
    GlibHandle<GDBusConnection> m_connection;
    guint m_filter = 0;
};

} // namespace ostrel
