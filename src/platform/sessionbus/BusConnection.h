#pragma once

#include "platform/sessionbus/GlibHandles.h"

#include <QByteArray>

namespace ostrel {

/// A connection of the caller's own, not the one that GLib shares: that one ends the process when the bus ends.
/// Blocks until the bus answers or the cancellable (may be null) ends it. Any thread; what the connection has to tell
/// goes to the main context that is the thread's default.
/// @return null, with the error set, when there is none
GlibHandle<GDBusConnection> connectToBus(const QByteArray &address, GCancellable *cancellable,
                                         GlibHandle<GError> &error);

/// The same for those who can't wait for a bus that hangs.
/// @param context the thread's default; it is run until the bus has answered or the time is over
/// @param timeoutMs positive
/// @return null when there is none in time
GlibHandle<GDBusConnection> connectToBusInTime(const QByteArray &address, GMainContext *context, int timeoutMs);

/// Closes a connection of this thread and takes what it still has to tell. Without this a message that comes while its
/// reader leaves waits for the reader for ever, and keeps connection and context alive with it. Waits for a second at
/// most.
/// @param context the thread's default
void closeBus(GDBusConnection *connection, GMainContext *context);

/// While it lives, GLib tells this thread what it has to tell by this main context, not by everybody's.
class MainContextScope
{
public:
    explicit MainContextScope(GMainContext *context) : m_context(context)
    {
        g_main_context_push_thread_default(m_context);
    }
    MainContextScope(const MainContextScope &) = delete;
    MainContextScope &operator=(const MainContextScope &) = delete;
    ~MainContextScope() { g_main_context_pop_thread_default(m_context); }

private:
    GMainContext *const m_context;
};

} // namespace ostrel
