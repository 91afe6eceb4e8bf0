#include "platform/instance/BusRunningApplication.h"

#include "platform/instance/BusDeadline.h"
#include "platform/instance/PassedText.h"
#include "platform/instance/RecorderInterface.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/BusNames.h"
#include "platform/sessionbus/SessionBusAddress.h"

#include <limits>

namespace ostrel {

namespace {

template <class T>
using Answered = std::expected<T, RemoteFailure>;

/// One conversation with the bus, over when its deadline is.
class Conversation
{
public:
    explicit Conversation(std::chrono::milliseconds patience)
        : m_cancellable(g_cancellable_new()), m_deadline(m_cancellable.get(), patience)
    {}
    Conversation(const Conversation &) = delete;
    Conversation &operator=(const Conversation &) = delete;
    ~Conversation()
    {
        if (m_connection)
            g_dbus_connection_close_sync(m_connection.get(), m_cancellable.get(), nullptr);
    }

    Answered<void> connect(const QByteArray &address)
    {
        GlibHandle<GError> error;
        m_connection = connectToBus(address, m_cancellable.get(), error);
        if (m_connection)
            return {};
        return std::unexpected(isOver() ? RemoteFailure::Silent : RemoteFailure::NoBus);
    }

    /// The process that has our name, once it has it: one that has just begun to record may be a moment behind.
    Answered<QByteArray> owner()
    {
        constexpr gulong pauseUs = 50'000;
        const gint64 giveUpAt = g_get_monotonic_time() + namePatienceUs;
        while (true) {
            GlibHandle<GError> error;
            const auto answer = ask("GetNameOwner", g_variant_new("(s)", RecorderInterface::busName), "(s)", error);
            if (answer)
                return QByteArray(g_variant_get_string(GlibHandle<GVariant>(first(answer)).get(), nullptr));
            if (!g_error_matches(error.get(), G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER))
                return std::unexpected(failure());
            if (g_get_monotonic_time() >= giveUpAt || isOver())
                return std::unexpected(RemoteFailure::NotThere);
            g_usleep(pauseUs);
        }
    }

    Answered<qint64> processOf(const QByteArray &owner)
    {
        GlibHandle<GError> error;
        const auto answer = ask("GetConnectionUnixProcessID", g_variant_new("(s)", owner.constData()), "(u)", error);
        if (!answer)
            return std::unexpected(isOver() ? RemoteFailure::Silent : RemoteFailure::NotThere);
        return qint64(g_variant_get_uint32(GlibHandle<GVariant>(first(answer)).get()));
    }

    Answered<SettingAnswer> changeSetting(const QByteArray &owner, const SettingChange &change)
    {
        const PassedText value(change.value);
        const GlibHandle<GUnixFDList> files(g_unix_fd_list_new());
        const int index = value.descriptor() < 0 ? -1 : g_unix_fd_list_append(files.get(), value.descriptor(), nullptr);
        if (index < 0)
            return std::unexpected(RemoteFailure::Broken);
        const GlibHandle<GVariant> answer(g_dbus_connection_call_with_unix_fd_list_sync(
            m_connection.get(), owner.constData(), RecorderInterface::objectPath, RecorderInterface::interfaceName,
            RecorderInterface::changeSetting, g_variant_new("(sh)", change.key.toUtf8().constData(), index),
            G_VARIANT_TYPE("(ss)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, noTimeout, files.get(), nullptr,
            m_cancellable.get(), nullptr));
        if (!answer)
            return std::unexpected(failure());
        const char *outcome = nullptr;
        const char *words = nullptr;
        g_variant_get(answer.get(), "(&s&s)", &outcome, &words);
        const auto known = RecorderInterface::outcomeNamed(outcome);
        if (!known)
            return std::unexpected(RemoteFailure::Broken);
        return SettingAnswer{.outcome = *known, .words = QString::fromUtf8(words)};
    }

    Answered<QString> complaint(const QByteArray &owner)
    {
        const GlibHandle<GVariant> answer(g_dbus_connection_call_sync(
            m_connection.get(), owner.constData(), RecorderInterface::objectPath, RecorderInterface::interfaceName,
            RecorderInterface::complaint, nullptr, G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, noTimeout,
            m_cancellable.get(), nullptr));
        if (!answer)
            return std::unexpected(failure());
        return QString::fromUtf8(g_variant_get_string(GlibHandle<GVariant>(first(answer)).get(), nullptr));
    }

    Answered<bool> activate(const QByteArray &owner)
    {
        GlibHandle<GError> error;
        const GlibHandle<GVariant> answer(g_dbus_connection_call_sync(
            m_connection.get(), owner.constData(), RecorderInterface::objectPath,
            RecorderInterface::applicationInterface, RecorderInterface::activate, g_variant_new("(a{sv})", nullptr),
            G_VARIANT_TYPE_UNIT, G_DBUS_CALL_FLAGS_NO_AUTO_START, noTimeout, m_cancellable.get(), ErrorOut(error)));
        if (answer)
            return true;
        if (g_error_matches(error.get(), G_DBUS_ERROR, G_DBUS_ERROR_NOT_SUPPORTED))
            return false;
        return std::unexpected(failure());
    }

private:
    static constexpr gint64 namePatienceUs = 2'000'000;
    /// The deadline is the conversation's.
    static constexpr int noTimeout = std::numeric_limits<int>::max();

    bool isOver() const { return g_cancellable_is_cancelled(m_cancellable.get()) != FALSE; }
    RemoteFailure failure() const { return isOver() ? RemoteFailure::Silent : RemoteFailure::Broken; }

    /// @param arguments taken over
    GlibHandle<GVariant> ask(const char *method, GVariant *arguments, const char *answerType, GlibHandle<GError> &error)
    {
        return GlibHandle<GVariant>(g_dbus_connection_call_sync(
            m_connection.get(), BusNames::daemon, BusNames::daemonPath, BusNames::daemon, method, arguments,
            G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NONE, noTimeout, m_cancellable.get(), ErrorOut(error)));
    }
    static GVariant *first(const GlibHandle<GVariant> &tuple) { return g_variant_get_child_value(tuple.get(), 0); }

    const GlibHandle<GMainContext> m_context{g_main_context_new()};
    const MainContextScope m_scope{m_context.get()};
    const GlibHandle<GCancellable> m_cancellable;
    GlibHandle<GDBusConnection> m_connection;
    const BusDeadline m_deadline;
};

} // namespace

BusRunningApplication::BusRunningApplication(std::optional<QByteArray> busAddress, std::chrono::milliseconds patience)
    : m_busAddress(std::move(busAddress)), m_patience(patience)
{}

namespace {

/// Finds the program and says something to it: to that very connection, because the name could change hands meanwhile.
template <class Say>
auto talk(const QByteArray &address, std::chrono::milliseconds patience, qint64 processId, Say say)
    -> std::invoke_result_t<Say, Conversation &, QByteArray>
{
    if (address.isEmpty())
        return std::unexpected(RemoteFailure::NoBus);
    Conversation conversation(patience);
    if (const auto connected = conversation.connect(address); !connected)
        return std::unexpected(connected.error());
    const auto owner = conversation.owner();
    if (!owner)
        return std::unexpected(owner.error());
    const auto process = conversation.processOf(*owner);
    if (!process)
        return std::unexpected(process.error());
    if (*process != processId)
        return std::unexpected(RemoteFailure::NotTheRecorder);
    return say(conversation, *owner);
}

} // namespace

std::expected<SettingAnswer, RemoteFailure> BusRunningApplication::changeSetting(qint64 processId,
                                                                                 const SettingChange &change)
{
    return talk(address(), m_patience, processId, [&change](Conversation &conversation, const QByteArray &owner) {
        return conversation.changeSetting(owner, change);
    });
}

std::expected<QString, RemoteFailure> BusRunningApplication::complaint(qint64 processId)
{
    return talk(address(), m_patience, processId,
                [](Conversation &conversation, const QByteArray &owner) { return conversation.complaint(owner); });
}

std::expected<bool, RemoteFailure> BusRunningApplication::activate(qint64 processId)
{
    return talk(address(), m_patience, processId,
                [](Conversation &conversation, const QByteArray &owner) { return conversation.activate(owner); });
}

QByteArray BusRunningApplication::address() const
{
    return m_busAddress ? *m_busAddress : sessionBusAddress().toUtf8();
}

} // namespace ostrel
