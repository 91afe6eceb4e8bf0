#include "TestPortal.h"

#include "ConnectedSocket.h"
#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/BusNames.h"
#include "support/TestProcess.h"

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
    : m_pipeWireSocket(std::move(pipeWireSocket)), m_context(g_main_context_new())
{
    const MainContextScope scope(m_context.get());
    GlibHandle<GError> error;
    m_connection = connectToBus(busAddress, nullptr, error);
    if (!m_connection)
        failTest(QString::fromUtf8(error->message));
    m_filter = g_dbus_connection_add_filter(m_connection.get(), &TestPortal::filter, this, nullptr);
    constexpr guint32 doNotQueue = 4;
    if (!callBus({.connection = m_connection.get()},
                 {BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "RequestName"},
                 g_variant_new("(su)", "org.freedesktop.portal.Desktop", doNotQueue), "(u)", error))
        failTest(QString::fromUtf8(error->message));
}

TestPortal::~TestPortal()
{
    const MainContextScope scope(m_context.get());
    g_dbus_connection_remove_filter(m_connection.get(), m_filter);
    closeBus(m_connection.get(), m_context.get());
    m_connection.reset();
    while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
    }
}

void TestPortal::behave(const Behaviour &behaviour)
{
    const std::scoped_lock lock(m_mutex);
    m_behaviour = behaviour;
}

TestPortal::Seen TestPortal::seen() const
{
    const std::scoped_lock lock(m_mutex);
    return m_seen;
}

void TestPortal::endSharing()
{
    const std::scoped_lock lock(m_mutex);
    g_dbus_connection_emit_signal(m_connection.get(), m_client.constData(), m_session.constData(),
                                  "org.freedesktop.portal.Session", "Closed", nullptr, nullptr);
}

GDBusMessage *TestPortal::filter(GDBusConnection * /*connection*/, GDBusMessage *message, gboolean incoming,
                                 gpointer self)
{
    const bool isCall =
        incoming != FALSE && g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
    if (!isCall || !static_cast<TestPortal *>(self)->handle(message))
        return message;
    g_object_unref(message);
    return nullptr;
}

bool TestPortal::handle(GDBusMessage *message)
{
    const QByteArray interface = g_dbus_message_get_interface(message);
    const QByteArray member = g_dbus_message_get_member(message);
    const std::scoped_lock lock(m_mutex);
    if (interface == BusNames::properties && member == "Get") {
        constexpr guint32 everyMode = 7;
        reply(message, g_variant_new("(v)", g_variant_new_uint32(everyMode)));
    } else if (member == "Close") {
        if (QByteArray(g_dbus_message_get_path(message)).startsWith(requests))
            ++m_seen.withdrawnQuestions;
        else
            ++m_seen.closedSessions;
        reply(message, nullptr);
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
    reply(message, g_variant_new("(o)", path.constData()));
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
    reply(message, g_variant_new("(h)", index), files.get());
}

void TestPortal::reply(GDBusMessage *message, GVariant *body, GUnixFDList *files)
{
    GDBusMessage *answer = g_dbus_message_new_method_reply(message);
    if (body != nullptr)
        g_dbus_message_set_body(answer, body);
    if (files != nullptr)
        g_dbus_message_set_unix_fd_list(answer, files);
    g_dbus_connection_send_message(m_connection.get(), answer, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(answer);
}

void TestPortal::respond(const QByteArray &path, guint32 code, GVariant *results)
{
    g_dbus_connection_emit_signal(m_connection.get(), m_client.constData(), path.constData(),
                                  "org.freedesktop.portal.Request", "Response",
                                  g_variant_new("(u@a{sv})", code, results), nullptr);
}

} // namespace ostrel
