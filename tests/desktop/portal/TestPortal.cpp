#include "TestPortal.h"

#include "ConnectedSocket.h"
#include "platform/sessionbus/BusNames.h"

#include <unistd.h>
#include <utility>

namespace ostrel {

namespace {

const char *const requests = "/org/freedesktop/portal/desktop/request/";
const char *const sessions = "/org/freedesktop/portal/desktop/session/";

QByteArray textIn(GVariant *options, const char *name)
{
    const GlibHandle<GVariant> value(g_variant_lookup_value(options, name, G_VARIANT_TYPE_STRING));
    return value ? QByteArray(g_variant_get_string(value.get(), nullptr)) : QByteArray();
}

guint32 numberIn(GVariant *options, const char *name)
{
    guint32 value = 0;
    g_variant_lookup(options, name, "u", &value);
    return value;
}

/// The options are the last argument of every method.
GlibHandle<GVariant> optionsOf(GDBusMessage *message)
{
    GVariant *body = g_dbus_message_get_body(message);
    return GlibHandle<GVariant>(g_variant_get_child_value(body, g_variant_n_children(body) - 1));
}

GVariant *emptyResults()
{
    return g_variant_new("a{sv}", nullptr);
}

} // namespace

TestPortal::TestPortal(const QByteArray &busAddress, QString pipeWireSocket)
    : m_pipeWireSocket(std::move(pipeWireSocket)),
      m_service(busAddress, "org.freedesktop.portal.Desktop", [this](GDBusMessage *call) { return handle(call); })
{}

void TestPortal::behave(const Behaviour &behaviour)
{
    const std::scoped_lock lock(m_mutex);
    m_behaviour = behaviour;
}

void TestPortal::answerLate(const Behaviour &behaviour)
{
    const std::scoped_lock lock(m_mutex);
    m_behaviour = behaviour;
    respond(m_lastQuestion, 0, startResults());
}

TestPortal::Seen TestPortal::seen() const
{
    const std::scoped_lock lock(m_mutex);
    return m_seen;
}

void TestPortal::endSharing()
{
    {
        const std::scoped_lock lock(m_mutex);
        m_service.tell({.destination = m_client.constData(),
                        .path = m_session.constData(),
                        .interface = "org.freedesktop.portal.Session",
                        .name = "Closed"});
    }
    m_service.waitUntilTold();
}

QByteArray TestPortal::client() const
{
    const std::scoped_lock lock(m_mutex);
    return m_client;
}

QByteArray TestPortal::session() const
{
    const std::scoped_lock lock(m_mutex);
    return m_session;
}

bool TestPortal::handle(GDBusMessage *message)
{
    const QByteArray interface = g_dbus_message_get_interface(message);
    const QByteArray member = g_dbus_message_get_member(message);
    const std::scoped_lock lock(m_mutex);
    if (interface == BusNames::properties && member == "Get") {
        constexpr guint32 everyMode = 7;
        m_service.reply(message, g_variant_new("(v)", g_variant_new_uint32(everyMode)));
    } else if (member == "Close") {
        if (QByteArray(g_dbus_message_get_path(message)).startsWith(requests))
            ++m_seen.withdrawnQuestions;
        else
            ++m_seen.closedSessions;
        m_service.reply(message, nullptr);
    } else if (member == "OpenPipeWireRemote") {
        answerPipeWire(message);
    } else if (interface == "org.freedesktop.portal.ScreenCast") {
        answerRequest(message, member);
    } else {
        return false;
    }
    return true;
}

void TestPortal::answerRequest(GDBusMessage *message, const QByteArray &member)
{
    const auto options = optionsOf(message);
    m_client = g_dbus_message_get_sender(message);
    QByteArray sender = m_client.mid(1);
    sender.replace('.', '_');
    const QByteArray path = requests + sender + '/' + textIn(options.get(), "handle_token");
    if (member == "SelectSources")
        noteSelection(options.get());
    m_service.reply(message, g_variant_new("(o)", path.constData()));
    if (member == "CreateSession" && ++m_seen.sessions <= m_behaviour.failingSessions)
        return respond(path, 2, emptyResults());
    if (member == "CreateSession") {
        m_session = sessions + sender + '/' + textIn(options.get(), "session_handle_token");
        GVariantBuilder results;
        g_variant_builder_init(&results, G_VARIANT_TYPE_VARDICT);
        g_variant_builder_add(&results, "{sv}", "session_handle", g_variant_new_string(m_session.constData()));
        return respond(path, 0, g_variant_builder_end(&results));
    }
    if (member == "SelectSources")
        return respond(path, 0, emptyResults());
    ++m_seen.questions;
    m_lastQuestion = path;
    if (!m_behaviour.refusedToken.isEmpty() && m_seen.tokens.last() == m_behaviour.refusedToken)
        return respond(path, 2, emptyResults());
    if (m_behaviour.answer == Answer::Grants)
        respond(path, 0, startResults());
    else if (m_behaviour.answer != Answer::None)
        respond(path, m_behaviour.answer == Answer::Declines ? 1 : 2, emptyResults());
}

void TestPortal::noteSelection(GVariant *options)
{
    m_seen.tokens.append(textIn(options, "restore_token"));
    m_seen.kinds = numberIn(options, "types");
    m_seen.cursorMode = numberIn(options, "cursor_mode");
    m_seen.persistMode = numberIn(options, "persist_mode");
    gboolean several = FALSE;
    g_variant_lookup(options, "multiple", "b", &several);
    m_seen.several = several != FALSE;
}

GVariant *TestPortal::startResults()
{
    GVariantBuilder streams;
    g_variant_builder_init(&streams, G_VARIANT_TYPE("a(ua{sv})"));
    for (const Stream &stream : m_behaviour.streams) {
        GVariantBuilder facts;
        g_variant_builder_init(&facts, G_VARIANT_TYPE_VARDICT);
        if (!stream.id.isEmpty())
            g_variant_builder_add(&facts, "{sv}", "id", g_variant_new_string(stream.id.constData()));
        if (stream.corner)
            g_variant_builder_add(&facts, "{sv}", "position",
                                  g_variant_new("(ii)", stream.corner->x(), stream.corner->y()));
        if (stream.size)
            g_variant_builder_add(&facts, "{sv}", "size",
                                  g_variant_new("(ii)", stream.size->width(), stream.size->height()));
        g_variant_builder_add(&streams, "(ua{sv})", stream.node, &facts);
    }
    GVariantBuilder results;
    g_variant_builder_init(&results, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&results, "{sv}", "streams", g_variant_builder_end(&streams));
    if (!m_behaviour.newToken.isEmpty())
        g_variant_builder_add(&results, "{sv}", "restore_token",
                              g_variant_new_string(m_behaviour.newToken.constData()));
    return g_variant_builder_end(&results);
}

void TestPortal::answerPipeWire(GDBusMessage *message)
{
    GlibHandle<GError> error;
    const GlibHandle<GUnixFDList> files(g_unix_fd_list_new());
    const int descriptor = connectedSocket(m_pipeWireSocket);
    const gint32 index = g_unix_fd_list_append(files.get(), descriptor, ErrorOut(error));
    ::close(descriptor);
    m_service.reply(message, g_variant_new("(h)", index), files.get());
}

void TestPortal::respond(const QByteArray &path, guint32 code, GVariant *results)
{
    m_service.tell({.destination = m_client.constData(),
                    .path = path.constData(),
                    .interface = "org.freedesktop.portal.Request",
                    .name = "Response"},
                   g_variant_new("(u@a{sv})", code, results));
}

} // namespace ostrel
