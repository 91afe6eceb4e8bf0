#pragma once

#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/GlibHandles.h"

#include <chrono>
#include <functional>
#include <memory>

namespace ostrel {

/// A call that is made later on the thread of a `BusLoop`; withdrawn when this is destroyed. That thread.
class BusTimer
{
public:
    BusTimer(GMainContext *context, std::chrono::milliseconds delay, std::function<void()> callback);
    BusTimer(const BusTimer &) = delete;
    BusTimer &operator=(const BusTimer &) = delete;
    ~BusTimer();

private:
    const std::function<void()> m_callback;
    const GlibHandle<GSource> m_source;
};

/// While it lives, what the connections of this thread have to tell is told to this thread, while it runs the loop.
/// Destroy it after them.
class BusLoop
{
public:
    /// @param stopped ends it, from any thread and for good
    explicit BusLoop(GCancellable *stopped);
    BusLoop(const BusLoop &) = delete;
    BusLoop &operator=(const BusLoop &) = delete;
    ~BusLoop();

    /// Returns after a `quit` that is called meanwhile, or the stop.
    void run();
    /// The same, but after this time at the latest.
    void runFor(std::chrono::milliseconds duration);
    void quit() { m_hasQuit = true; }

    /// For a connection of this thread that is needed no more; also after the stop. See `closeBus`.
    void close(GDBusConnection *connection) { closeBus(connection, m_context.get()); }

    GCancellable *stopped() const { return m_stopped; }
    bool isStopped() const { return g_cancellable_is_cancelled(m_stopped) != FALSE; }
    std::unique_ptr<BusTimer> after(std::chrono::milliseconds delay, std::function<void()> callback);

private:
    GCancellable *const m_stopped;
    const GlibHandle<GMainContext> m_context;
    const MainContextScope m_scope;
    gulong m_onStop = 0;
    bool m_hasQuit = false;
};

} // namespace ostrel
