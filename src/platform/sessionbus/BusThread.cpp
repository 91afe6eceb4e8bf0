#include "platform/sessionbus/BusThread.h"

#include "base/Log.h"

#include <algorithm>

namespace ostrel {

namespace {

/// How long one service may keep the thread: it has others to hear.
constexpr std::chrono::seconds servicePatience{2};

} // namespace

BusThread::BusThread(Bus bus, std::unique_ptr<BusVisitor> visitor)
    : m_bus(std::move(bus)), m_visitor(std::move(visitor)), m_stopped(g_cancellable_new()), m_thread([this] { run(); })
{}

BusThread::~BusThread()
{
    g_cancellable_cancel(m_stopped.get());
    m_thread.join();
}

void BusThread::run()
{
    BusLoop loop(m_stopped.get());
    auto pause = m_bus.firstPause;
    while (!loop.isStopped()) {
        if (const auto connection = connect()) {
            pause = m_bus.firstPause;
            serve(connection.get(), loop);
        }
        loop.runFor(pause);
        pause = std::min(2 * pause, longestPause);
    }
}

GlibHandle<GDBusConnection> BusThread::connect()
{
    GlibHandle<GError> error;
    auto connection = connectToBus(m_bus.address, m_stopped.get(), error);
    const bool isMissed = !connection;
    // Not a warning: many machines have no such bus, and there is nothing for the user to do in the midst of a
    // recording.
    if (isMissed && !m_isMissed && g_cancellable_is_cancelled(m_stopped.get()) == FALSE)
        qCInfo(logPlatform, "The %s can't be reached: %s. It is tried again from time to time.", m_bus.name,
               error->message);
    else if (!isMissed && m_isMissed)
        qCInfo(logPlatform, "The %s is there again.", m_bus.name);
    m_isMissed = isMissed;
    return connection;
}

void BusThread::serve(GDBusConnection *connection, BusLoop &loop)
{
    const auto closed =
        +[](GDBusConnection *, gboolean, GError *, gpointer data) { static_cast<BusLoop *>(data)->quit(); };
    const gulong handler = g_signal_connect(connection, "closed", G_CALLBACK(closed), &loop);
    m_visitor->visit({.connection = connection, .patience = servicePatience, .cancellable = m_stopped.get()}, loop);
    loop.run();
    m_visitor->leave();
    g_signal_handler_disconnect(connection, handler);
    loop.close(connection);
    if (loop.isStopped())
        return;
    qCInfo(logPlatform, "The %s has ended; it is tried again from time to time.", m_bus.name);
    m_isMissed = true;
}

} // namespace ostrel
