#include "platform/sessionbus/BusLoop.h"

namespace ostrel {

BusTimer::BusTimer(GMainContext *context, std::chrono::milliseconds delay, std::function<void()> callback)
    : m_callback(std::move(callback)), m_source(g_timeout_source_new(guint(delay.count())))
{
    const GSourceFunc call = [](gpointer self) {
        // The call may destroy the timer, and with it the function that is called.
        const std::function<void()> callback = static_cast<const BusTimer *>(self)->m_callback;
        callback();
        return gboolean(G_SOURCE_REMOVE);
    };
    g_source_set_callback(m_source.get(), call, this, nullptr);
    g_source_attach(m_source.get(), context);
}

BusTimer::~BusTimer()
{
    g_source_destroy(m_source.get());
}

BusLoop::BusLoop(GCancellable *stopped) : m_stopped(stopped), m_context(g_main_context_new()), m_scope(m_context.get())
{
    // Not GLib's source for cancellables: one that is destroyed while another thread cancels is leaked now and then.
    const auto wake =
        +[](GCancellable *, gpointer context) { g_main_context_wakeup(static_cast<GMainContext *>(context)); };
    m_onStop = g_cancellable_connect(m_stopped, G_CALLBACK(wake), m_context.get(), nullptr);
}

BusLoop::~BusLoop()
{
    g_cancellable_disconnect(m_stopped, m_onStop); // waits for a call that is under way
    // A connection that was lost waits in there to be reported, and would keep itself and the context alive.
    while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
    }
}

void BusLoop::run()
{
    m_hasQuit = false;
    while (!m_hasQuit && !isStopped())
        g_main_context_iteration(m_context.get(), TRUE);
}

void BusLoop::runFor(std::chrono::milliseconds duration)
{
    const auto timeIsUp = after(duration, [this] { quit(); });
    run();
}

std::unique_ptr<BusTimer> BusLoop::after(std::chrono::milliseconds delay, std::function<void()> callback)
{
    return std::make_unique<BusTimer>(m_context.get(), delay, std::move(callback));
}

} // namespace ostrel
