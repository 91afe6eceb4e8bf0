#include "platform/sessionbus/BusCall.h"

#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/BusNames.h"

namespace ostrel {

namespace {

/// A call that this thread waits for on a main context of its own.
///
/// GLib's blocking calls leak the connection when they are cancelled by another thread just as the answer comes: the
/// cancellation then waits in a context that nobody runs any more. So it is this thread that cancels, and what the
/// call has put into the context is taken before it goes.
class WaitedCall
{
public:
    explicit WaitedCall(GCancellable *stopped) : m_stopped(stopped)
    {
        if (m_stopped == nullptr)
            return;
        const auto wake =
            +[](GCancellable *, gpointer context) { g_main_context_wakeup(static_cast<GMainContext *>(context)); };
        m_onStop = g_cancellable_connect(m_stopped, G_CALLBACK(wake), m_context.get(), nullptr);
    }
    WaitedCall(const WaitedCall &) = delete;
    WaitedCall &operator=(const WaitedCall &) = delete;
    ~WaitedCall()
    {
        if (m_stopped != nullptr)
            g_cancellable_disconnect(m_stopped, m_onStop);
    }

    GlibHandle<GVariant> run(const BusLine &line, const BusMethod &method, GVariant *arguments, const char *answerType,
                             GUnixFDList **files, GlibHandle<GError> &error)
    {
        g_dbus_connection_call_with_unix_fd_list(line.connection, method.service, method.path, method.interface,
                                                 method.name, arguments, G_VARIANT_TYPE(answerType),
                                                 G_DBUS_CALL_FLAGS_NO_AUTO_START, int(line.patience.count()), nullptr,
                                                 m_cancel.get(), &WaitedCall::take, this);
        while (!m_result) {
            if (g_cancellable_is_cancelled(m_stopped) != FALSE)
                g_cancellable_cancel(m_cancel.get());
            g_main_context_iteration(m_context.get(), TRUE);
        }
        while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
        }
        return GlibHandle<GVariant>(
            g_dbus_connection_call_with_unix_fd_list_finish(line.connection, files, m_result.get(), ErrorOut(error)));
    }

private:
    static void take(GObject * /*source*/, GAsyncResult *result, gpointer self)
    {
        static_cast<WaitedCall *>(self)->m_result.reset(G_ASYNC_RESULT(g_object_ref(result)));
    }

    GCancellable *const m_stopped;
    const GlibHandle<GCancellable> m_cancel{g_cancellable_new()};
    const GlibHandle<GMainContext> m_context{g_main_context_new()};
    const MainContextScope m_scope{m_context.get()};
    GlibHandle<GAsyncResult> m_result;
    gulong m_onStop = 0;
};

GlibHandle<GVariant> firstOf(const GlibHandle<GVariant> &tuple)
{
    return GlibHandle<GVariant>(g_variant_get_child_value(tuple.get(), 0));
}

} // namespace

GlibHandle<GVariant> callBus(const BusLine &line, const BusMethod &method, GVariant *arguments, const char *answerType,
                             GlibHandle<GError> &error)
{
    return WaitedCall(line.cancellable).run(line, method, arguments, answerType, nullptr, error);
}

BusAnswer callBusForFiles(const BusLine &line, const BusMethod &method, GVariant *arguments, const char *answerType,
                          GlibHandle<GError> &error)
{
    GUnixFDList *files = nullptr;
    BusAnswer answer;
    answer.value = WaitedCall(line.cancellable).run(line, method, arguments, answerType, &files, error);
    answer.files.reset(files);
    return answer;
}

std::optional<bool> readBusFlag(const BusLine &line, const BusMethod &object, const char *property)
{
    GlibHandle<GError> error;
    const auto answer = callBus(line, {object.service, object.path, BusNames::properties, "Get"},
                                g_variant_new("(ss)", object.interface, property), "(v)", error);
    if (!answer)
        return std::nullopt;
    return flagIn(GlibHandle<GVariant>(g_variant_get_variant(firstOf(answer).get())).get());
}

std::optional<bool> hasOwner(const BusLine &line, const char *service)
{
    GlibHandle<GError> error;
    const auto answer = callBus(line, {BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "NameHasOwner"},
                                g_variant_new("(s)", service), "(b)", error);
    return answer ? flagIn(firstOf(answer).get()) : std::nullopt;
}

QByteArray ownerOf(const BusLine &line, const char *service, GlibHandle<GError> &error)
{
    const auto answer = callBus(line, {BusNames::daemon, BusNames::daemonPath, BusNames::daemon, "GetNameOwner"},
                                g_variant_new("(s)", service), "(s)", error);
    return answer ? QByteArray(g_variant_get_string(firstOf(answer).get(), nullptr)) : QByteArray();
}

std::optional<bool> flagIn(GVariant *value)
{
    if (!g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN))
        return std::nullopt;
    return g_variant_get_boolean(value) != FALSE;
}

} // namespace ostrel
