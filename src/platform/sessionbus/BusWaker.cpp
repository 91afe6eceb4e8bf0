#include "platform/sessionbus/BusWaker.h"

#include <utility>

namespace ostrel {

namespace {

gboolean call(GSource *source, GSourceFunc function, gpointer self)
{
    // Before the call: who wakes it meanwhile wants another one.
    g_source_set_ready_time(source, -1);
    return function(self);
}

// GLib wants it to be changeable.
GSourceFuncs functions{.prepare = nullptr,
                       .check = nullptr,
                       .dispatch = &call,
                       .finalize = nullptr,
                       .closure_callback = nullptr,
                       .closure_marshal = nullptr};

} // namespace

BusWaker::BusWaker(std::function<void()> callback)
    : m_callback(std::move(callback)), m_source(g_source_new(&functions, sizeof(GSource)))
{
    const GSourceFunc run = [](gpointer self) {
        // The call may destroy this, and with it the function that is called.
        const std::function<void()> callback = static_cast<const BusWaker *>(self)->m_callback;
        callback();
        return gboolean(G_SOURCE_CONTINUE);
    };
    g_source_set_callback(m_source.get(), run, this, nullptr);
    g_source_attach(m_source.get(), g_main_context_get_thread_default());
}

BusWaker::~BusWaker()
{
    g_source_destroy(m_source.get());
}

void BusWaker::wake()
{
    g_source_set_ready_time(m_source.get(), 0);
}

} // namespace ostrel
