#include "platform/instance/BusService.h"

#include "base/Log.h"
#include "platform/instance/BusDeadline.h"
#include "platform/instance/PassedText.h"
#include "platform/instance/RecorderInterface.h"
#include "platform/sessionbus/BusCall.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/BusLoop.h"
#include "platform/sessionbus/BusNames.h"

namespace ostrel {

namespace {

/// A name that is taken by another one is not waited for.
constexpr guint32 doNotQueue = 4;
constexpr guint32 primaryOwner = 1;

void warn(const char *what, const GlibHandle<GError> &error)
{
    qCWarning(logPlatform, "%s: %s. Commands can't reach this recorder.", what,
              error ? error->message : "another program has it");
}

/// The text in the file that came with the call.
std::optional<QString> passedText(GDBusMethodInvocation *invocation, gint32 index)
{
    GUnixFDList *files = g_dbus_message_get_unix_fd_list(g_dbus_method_invocation_get_message(invocation));
    if (files == nullptr || index < 0 || index >= g_unix_fd_list_get_length(files))
        return std::nullopt;
    return PassedText::readFrom(g_unix_fd_list_peek_fds(files, nullptr)[index]);
}

} // namespace

PendingCall::~PendingCall()
{
    if (m_invocation != nullptr)
        g_dbus_method_invocation_return_dbus_error(m_invocation, "com.tamsk.ostrel.Error.Ending", "The recorder ends.");
}

void PendingCall::answerWith(GVariant *body)
{
    g_dbus_method_invocation_return_value(std::exchange(m_invocation, nullptr), body);
}

SettingCall::SettingCall(SettingChange change, GDBusMethodInvocation *invocation)
    : PendingCall(invocation), m_change(std::move(change))
{}

void SettingCall::answer(const SettingAnswer &answer)
{
    answerWith(g_variant_new("(ss)", RecorderInterface::outcomeName(answer.outcome).constData(),
                             answer.words.toUtf8().constData()));
}

void ComplaintCall::answer(const QString &complaint)
{
    answerWith(g_variant_new("(s)", complaint.toUtf8().constData()));
}

BusService::BusService(QByteArray busAddress, Calls calls)
    : m_busAddress(std::move(busAddress)), m_calls(std::move(calls)), m_stopped(g_cancellable_new())
{}

void BusService::run()
{
    BusLoop loop(m_stopped.get());
    if (connect() && exportObject() && takeName()) {
        loop.run();
        flush();
    }
    if (m_connection)
        loop.close(m_connection.get());
    m_connection.reset();
}

void BusService::stop()
{
    g_cancellable_cancel(m_stopped.get());
}

bool BusService::connect()
{
    GlibHandle<GError> error;
    m_connection = connectToBus(m_busAddress, m_stopped.get(), error);
    if (!m_connection && g_cancellable_is_cancelled(m_stopped.get()) == FALSE)
        warn("the session bus can't be reached", error);
    return m_connection != nullptr;
}

bool BusService::exportObject()
{
    static constexpr GDBusInterfaceVTable recorder{
        .method_call =
            [](GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *method, GVariant *arguments,
               GDBusMethodInvocation *invocation,
               gpointer self) { static_cast<const BusService *>(self)->receive(invocation, method, arguments); },
        .get_property = nullptr,
        .set_property = nullptr,
        .padding = {}};
    static constexpr GDBusInterfaceVTable application{
        .method_call = [](GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *, GVariant *,
                          GDBusMethodInvocation *invocation,
                          gpointer self) { static_cast<const BusService *>(self)->receiveActivation(invocation); },
        .get_property = nullptr,
        .set_property = nullptr,
        .padding = {}};
    GlibHandle<GError> error;
    const GlibHandle<GDBusNodeInfo> node(
        g_dbus_node_info_new_for_xml(RecorderInterface::introspection, ErrorOut(error)));
    if (!node)
        warn("the object can't be described", error);
    return node && exportInterface(node.get(), RecorderInterface::interfaceName, recorder) &&
           exportInterface(node.get(), RecorderInterface::applicationInterface, application);
}

bool BusService::exportInterface(GDBusNodeInfo *node, const char *name, const GDBusInterfaceVTable &table)
{
    GlibHandle<GError> error;
    const bool exported = g_dbus_connection_register_object(m_connection.get(), RecorderInterface::objectPath,
                                                            g_dbus_node_info_lookup_interface(node, name), &table, this,
                                                            nullptr, ErrorOut(error)) != 0;
    if (!exported)
        warn("the object can't be shown on the session bus", error);
    return exported;
}

bool BusService::takeName()
{
    GlibHandle<GError> error;
    const BusLine line{
        .connection = m_connection.get(), .patience = std::chrono::seconds(25), .cancellable = m_stopped.get()};
    const auto answer = callBus(line, {BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "RequestName"},
                                g_variant_new("(su)", RecorderInterface::busName, doNotQueue), "(u)", error);
    guint32 outcome = 0;
    if (answer)
        g_variant_get(answer.get(), "(u)", &outcome);
    const bool taken = outcome == primaryOwner;
    if (!taken && g_cancellable_is_cancelled(m_stopped.get()) == FALSE)
        warn("the name on the session bus can't be had", error);
    return taken;
}

void BusService::receive(GDBusMethodInvocation *invocation, const QByteArray &method, GVariant *arguments) const
{
    if (method == RecorderInterface::complaint)
        m_calls.complaint(std::make_shared<ComplaintCall>(invocation));
    else
        receiveChange(invocation, arguments);
}

void BusService::receiveChange(GDBusMethodInvocation *invocation, GVariant *arguments) const
{
    const char *key = nullptr;
    gint32 index = -1;
    g_variant_get(arguments, "(&sh)", &key, &index);
    auto value = passedText(invocation, index);
    if (!value) {
        g_dbus_method_invocation_return_error_literal(invocation, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS,
                                                      "The value is no file with a text of fitting length.");
        return;
    }
    m_calls.changeSetting(std::make_shared<SettingCall>(
        SettingChange{.key = QString::fromUtf8(key), .value = *std::move(value)}, invocation));
}

/// Whatever a desktop asks an application for, there is only the panel to show.
void BusService::receiveActivation(GDBusMethodInvocation *invocation) const
{
    if (!m_calls.activate) {
        g_dbus_method_invocation_return_error_literal(invocation, G_DBUS_ERROR, G_DBUS_ERROR_NOT_SUPPORTED,
                                                      "It records in a terminal and has no window.");
        return;
    }
    m_calls.activate();
    g_dbus_method_invocation_return_value(invocation, nullptr);
}

/// The last answers are still on their way when the program ends.
void BusService::flush()
{
    constexpr std::chrono::milliseconds patience{500};
    const GlibHandle<GCancellable> tooLate(g_cancellable_new());
    const BusDeadline deadline(tooLate.get(), patience);
    g_dbus_connection_flush_sync(m_connection.get(), tooLate.get(), nullptr);
    g_dbus_connection_close_sync(m_connection.get(), tooLate.get(), nullptr);
}

} // namespace ostrel
