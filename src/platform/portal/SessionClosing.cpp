#include "platform/portal/SessionClosing.h"

#include "platform/portal/PortalBus.h"
#include "platform/sessionbus/BusSignals.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace ostrel {

namespace {

/// What GNOME's compositor tells of its monitors.
namespace ShellNames {
constexpr const char *service = "org.gnome.Mutter.DisplayConfig"; ///< name and interface
constexpr const char *path = "/org/gnome/Mutter/DisplayConfig";
} // namespace ShellNames

constexpr std::chrono::seconds shellPatience{1};

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
    const std::function<std::chrono::milliseconds()> monotonicTime;

    mutable std::mutex mutex;
    std::optional<std::chrono::milliseconds> closedAt = {};
    std::optional<std::chrono::milliseconds> changedAt = {}; ///< the last time

    void take(GDBusMessage *message)
    {
        if (g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_SIGNAL)
            return;
        const std::scoped_lock lock(mutex);
        if (isSignal(message, portal, PortalNames::session, "Closed") && !closedAt &&
            session == g_dbus_message_get_path(message))
            closedAt = monotonicTime();
        else if (isSignal(message, shell, ShellNames::service, "MonitorsChanged"))
            changedAt = monotonicTime();
    }
};

SessionClosing::SessionClosing(const BusLine &line, const QByteArray &session, Timing timing)
    : m_line{.connection = line.connection,
             .patience = std::min<std::chrono::milliseconds>(line.patience, shellPatience),
             .cancellable = nullptr},
      m_patience(timing.patience)
{
    GlibHandle<GError> error;
    const QByteArray portal = ownerOf(m_line, PortalNames::service, error);
    const QByteArray shell = ownerOf(m_line, ShellNames::service, error);
    m_notes = std::make_shared<Notes>(session, portal, shell, std::move(timing.monotonicTime));
    listen(session, portal, shell);
    if (!shell.isEmpty())
        m_monitors = readMonitors();
}

SessionClosing::~SessionClosing()
{
    g_dbus_connection_remove_filter(m_line.connection, m_filter);
}

void SessionClosing::listen(const QByteArray &session, const QByteArray &portal, const QByteArray &shell)
{
    const GDBusMessageFilterFunction take = [](GDBusConnection *, GDBusMessage *message, gboolean incoming,
                                               gpointer notes) {
        if (incoming != FALSE)
            (*static_cast<std::shared_ptr<Notes> *>(notes))->take(message);
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
                           .name = "MonitorsChanged"},
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

bool SessionClosing::hasMonitorsChanged() const
{
    const std::scoped_lock lock(m_notes->mutex);
    const auto closedAt = m_notes->closedAt;
    const auto changedAt = m_notes->changedAt;
    return closedAt && changedAt && *changedAt >= *closedAt - changeHolds && *changedAt <= *closedAt + m_patience;
}

bool SessionClosing::isExplained() const
{
    if (!m_monitors || hasMonitorsChanged())
        return true;
    const std::scoped_lock lock(m_notes->mutex);
    return m_notes->closedAt && m_notes->monotonicTime() > *m_notes->closedAt + m_patience;
}

bool SessionClosing::isByUnpluggedMonitor()
{
    if (!m_monitors || !hasMonitorsChanged())
        return false;
    const auto now = readMonitors();
    return now && !now->contains(*m_monitors);
}

std::optional<SessionClosing::Monitors> SessionClosing::readMonitors() const
{
    GlibHandle<GError> error;
    const auto answer = callBus(m_line, {ShellNames::service, ShellNames::path, ShellNames::service, "GetCurrentState"},
                                nullptr, "(ua((ssss)a(siiddada{sv})a{sv})a(iiduba(ssss)a{sv})a{sv})", error);
    if (!answer)
        return std::nullopt;
    Monitors monitors;
    const GlibHandle<GVariant> all(g_variant_get_child_value(answer.get(), 1));
    for (gsize i = 0; i < g_variant_n_children(all.get()); ++i) {
        const GlibHandle<GVariant> monitor(g_variant_get_child_value(all.get(), i));
        // Connector, vendor, product, serial number: together they say which one it is.
        const GlibHandle<GVariant> names(g_variant_get_child_value(monitor.get(), 0));
        char *text = g_variant_print(names.get(), FALSE);
        monitors.insert(text);
        g_free(text);
    }
    return monitors;
}

} // namespace ostrel
