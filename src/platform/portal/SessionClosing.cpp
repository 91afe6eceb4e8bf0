#include "platform/portal/SessionClosing.h"

#include "platform/portal/MonitorHistory.h"
#include "platform/portal/PortalBus.h"
#include "platform/portal/ShellMonitors.h"
#include "platform/sessionbus/BusSignals.h"

#include <QHash>

#include <algorithm>
#include <mutex>
#include <utility>

namespace ostrel {

namespace {

using Time = MonitorHistory::Time;

constexpr std::chrono::milliseconds busPatience{1'000};

bool isSignal(GDBusMessage *message, const QByteArray &sender, const char *interface, const char *name)
{
    return !sender.isEmpty() && sender == g_dbus_message_get_sender(message) &&
           g_strcmp0(g_dbus_message_get_interface(message), interface) == 0 &&
           g_strcmp0(g_dbus_message_get_member(message), name) == 0;
}

} // namespace

/// Written on GLib's thread, which may still do so when nobody else is interested any more.
struct SessionClosing::Notes {
    const QByteArray session;
    const QByteArray portal; ///< whose word counts: names on the bus that nobody else can have
    const QByteArray shell;
    const Timing timing;
    const GlibHandle<GMainContext> context; ///< of who waits for something to be noted

    mutable std::mutex mutex;
    std::optional<Time> closedAt = {};
    MonitorHistory monitors = {};
    QHash<guint32, Time> questions = {}; ///< that the shell has not answered: the change that each is about

    void take(GDBusConnection *connection, GDBusMessage *message)
    {
        const std::scoped_lock lock(mutex);
        if (g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_SIGNAL)
            takeAnswer(message);
        else if (isSignal(message, portal, PortalNames::session, "Closed") && !closedAt &&
                 session == g_dbus_message_get_path(message))
            closedAt = timing.monotonicTime();
        else if (isSignal(message, shell, ShellNames::service, ShellNames::changed))
            askForMonitors(connection, timing.monotonicTime());
    }

    void askForMonitors(GDBusConnection *connection, Time changedAt)
    {
        const GlibHandle<GDBusMessage> call(
            g_dbus_message_new_method_call(shell.constData(), ShellNames::path, ShellNames::service, ShellNames::read));
        // On this thread no answer can be waited for; it comes to `take` like everything else.
        guint32 serial = 0;
        if (g_dbus_connection_send_message(connection, call.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, &serial, nullptr) !=
            FALSE)
            questions.insert(serial, changedAt);
    }

    void takeAnswer(GDBusMessage *message)
    {
        const auto question = questions.constFind(g_dbus_message_get_reply_serial(message));
        if (question == questions.cend() || shell != g_dbus_message_get_sender(message))
            return;
        const Time changedAt = *question;
        questions.erase(question);
        if (!closedAt)
            monitors.outlive(changedAt - changeHolds);
        if (const auto now = shellMonitorsIn(g_dbus_message_get_body(message)))
            monitors.note(changedAt, now->connected);
        g_main_context_wakeup(context.get());
    }
};

SessionClosing::SessionClosing(const BusLine &line, const QByteArray &session, Timing timing)
    : m_line{.connection = line.connection, .patience = std::min(line.patience, busPatience), .cancellable = nullptr}
{
    GlibHandle<GError> error;
    const QByteArray portal = ownerOf(m_line, PortalNames::service, error);
    const QByteArray shell = ownerOf(m_line, ShellNames::service, error);
    m_notes = std::make_shared<Notes>(session, portal, shell, std::move(timing),
                                      GlibHandle<GMainContext>(g_main_context_ref_thread_default()));
    listen(session, portal, shell);
    const auto first = shell.isEmpty() ? std::nullopt : readShellMonitors(m_line);
    const std::scoped_lock lock(m_notes->mutex);
    if (first)
        m_notes->monitors.begin(first->connected);
}

SessionClosing::~SessionClosing()
{
    g_dbus_connection_remove_filter(m_line.connection, m_filter);
}

void SessionClosing::listen(const QByteArray &session, const QByteArray &portal, const QByteArray &shell)
{
    const GDBusMessageFilterFunction take = [](GDBusConnection *connection, GDBusMessage *message, gboolean incoming,
                                               gpointer notes) {
        if (incoming != FALSE)
            (*static_cast<std::shared_ptr<Notes> *>(notes))->take(connection, message);
        return message;
    };
    const GDestroyNotify letGo = [](gpointer notes) { delete static_cast<std::shared_ptr<Notes> *>(notes); };
    // The filter may be at work when it has been removed; GLib tells when it lets go of it.
    auto notes = std::make_unique<std::shared_ptr<Notes>>(m_notes);
    m_filter = g_dbus_connection_add_filter(m_line.connection, take, notes.release(), letGo);

    // These have the bus send the signals, and wake up who waits for one.
    m_signals = std::make_unique<BusSignals>(m_line.connection);
    const auto wake = [](GVariant *) {};
    if (!portal.isEmpty())
        m_signals->listen({.sender = portal.constData(),
                           .path = session.constData(),
                           .interface = PortalNames::session,
                           .name = "Closed",
                           .type = "*"},
                          wake);
    if (!shell.isEmpty())
        m_signals->listen({.sender = shell.constData(),
                           .path = ShellNames::path,
                           .interface = ShellNames::service,
                           .name = ShellNames::changed},
                          wake);
}

bool SessionClosing::isListening() const
{
    return !m_notes->portal.isEmpty();
}

bool SessionClosing::isClosed() const
{
    const std::scoped_lock lock(m_notes->mutex);
    return m_notes->closedAt.has_value();
}

bool SessionClosing::isExplained() const
{
    const std::scoped_lock lock(m_notes->mutex);
    if (!m_notes->closedAt || !m_notes->monitors.isBegun())
        return true;
    const Time at = *m_notes->closedAt;
    const Time last = at + m_notes->timing.patience;
    return m_notes->monitors.hasChanged(at, last) || m_notes->monitors.hasLost(at - changeHolds, last) ||
           m_notes->timing.monotonicTime() > last;
}

SessionClosing::Reason SessionClosing::reason() const
{
    const std::scoped_lock lock(m_notes->mutex);
    if (!m_notes->closedAt)
        return Reason::UsersWish;
    const Time at = *m_notes->closedAt;
    const Time last = at + m_notes->timing.patience;
    if (m_notes->monitors.hasLost(at - oneCauseWithin, std::min<Time>(at + oneCauseWithin, last)))
        return Reason::UnpluggedMonitor;
    return m_notes->monitors.hasLost(at - changeHolds, last) ? Reason::Either : Reason::UsersWish;
}

} // namespace ostrel
