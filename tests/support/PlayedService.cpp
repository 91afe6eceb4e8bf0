#include "support/PlayedService.h"

#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/BusNames.h"
#include "support/TestProcess.h"

#include <utility>

namespace ostrel {

PlayedService::PlayedService(const QByteArray &busAddress, const char *name, Handler handler)
    : m_handler(std::move(handler)), m_context(g_main_context_new())
{
    const MainContextScope scope(m_context.get());
    GlibHandle<GError> error;
    m_connection = connectToBus(busAddress, nullptr, error);
    if (!m_connection)
        failTest(QString::fromUtf8(error->message));
    m_filter = g_dbus_connection_add_filter(m_connection.get(), &PlayedService::filter, this, nullptr);
    constexpr guint32 doNotQueue = 4;
    if (!callBus({.connection = m_connection.get()},
                 {BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "RequestName"},
                 g_variant_new("(su)", name, doNotQueue), "(u)", error))
        failTest(QString::fromUtf8(error->message));
}

PlayedService::~PlayedService()
{
    const MainContextScope scope(m_context.get());
    g_dbus_connection_remove_filter(m_connection.get(), m_filter);
    closeBus(m_connection.get(), m_context.get());
    m_connection.reset();
    while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
    }
}

GDBusMessage *PlayedService::filter(GDBusConnection * /*connection*/, GDBusMessage *message, gboolean incoming,
                                    gpointer self)
{
    const bool isCall =
        incoming != FALSE && g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
    if (!isCall || !static_cast<PlayedService *>(self)->m_handler(message))
        return message;
    g_object_unref(message);
    return nullptr;
}

void PlayedService::reply(GDBusMessage *call, GVariant *body, GUnixFDList *files)
{
    GDBusMessage *answer = g_dbus_message_new_method_reply(call);
    if (body != nullptr)
        g_dbus_message_set_body(answer, body);
    if (files != nullptr)
        g_dbus_message_set_unix_fd_list(answer, files);
    g_dbus_connection_send_message(m_connection.get(), answer, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(answer);
}

void PlayedService::tell(const Signal &signal, GVariant *body)
{
    g_dbus_connection_emit_signal(m_connection.get(), signal.destination, signal.path, signal.interface, signal.name,
                                  body, nullptr);
}

QByteArray PlayedService::call(const Method &method, GVariant *body)
{
    GlibHandle<GError> error;
    if (callBus({.connection = m_connection.get(), .patience = std::chrono::seconds(20)},
                {method.destination.constData(), method.path, method.interface, method.name}, body, "()", error))
        return {};
    gchar *name = g_dbus_error_get_remote_error(error.get());
    const QByteArray copy = name == nullptr ? error->message : name;
    g_free(name);
    return copy;
}

void PlayedService::waitUntilTold()
{
    // Answered after everything that was sent before.
    if (!hasOwner({.connection = m_connection.get()}, BusNames::daemon))
        failTest(QStringLiteral("the bus does not answer"));
}

} // namespace ostrel
