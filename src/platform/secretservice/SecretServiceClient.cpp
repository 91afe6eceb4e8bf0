#include "platform/secretservice/SecretServiceClient.h"

#include "observer/SettingsStore.h"
#include "observer/TokenStore.h"
#include "platform/sessionbus/BusConnection.h"
#include "platform/sessionbus/BusNames.h"

#include <QStringDecoder>

#include <limits>

namespace ostrel {

namespace {

constexpr const char *serviceName = "org.freedesktop.secrets";
constexpr const char *servicePath = "/org/freedesktop/secrets";
constexpr const char *serviceInterface = "org.freedesktop.Secret.Service";
constexpr const char *collectionInterface = "org.freedesktop.Secret.Collection";
constexpr const char *itemInterface = "org.freedesktop.Secret.Item";

/// Marks our items, as other programs may call theirs by the same names.
constexpr const char *schemaName = "com.tamsk.ostrel.Secret";

/// The deadline is the caller's; a call that is answered late is how one notices that the service lives again.
constexpr int noTimeout = std::numeric_limits<int>::max();

/// In place of a path: none.
constexpr const char *noPath = "/";

std::unexpected<KeyringFailure> failure(KeyringState state, const QString &detail = {})
{
    return std::unexpected(KeyringFailure{.state = state, .detail = detail});
}

KeyringState stateBehind(const GError *error)
{
    if (error->domain == G_IO_ERROR && !g_dbus_error_is_remote_error(error))
        return error->code == G_IO_ERROR_CLOSED ? KeyringState::NoBus : KeyringState::Failed;
    gchar *const raw = g_dbus_error_get_remote_error(error);
    const QByteArray name(raw);
    g_free(raw);
    if (name == "org.freedesktop.Secret.Error.IsLocked")
        return KeyringState::Locked;
    // No reply: it has ended before it answered.
    for (const char *gone : {"ServiceUnknown", "NameHasNoOwner", "NoReply"}) {
        if (name == QByteArray("org.freedesktop.DBus.Error.") + gone)
            return KeyringState::NoService;
    }
    return KeyringState::Failed;
}

std::unexpected<KeyringFailure> failure(const GlibHandle<GError> &error)
{
    return failure(stateBehind(error.get()), QString::fromUtf8(error->message));
}

/// What people read who open their keyring.
QString labelFor(const QString &service)
{
    if (service == localApiTokenService)
        return QStringLiteral("Tamsk Ostrel: token between the program and its observer");
    if (service == analysisApiTokenService)
        return QStringLiteral("Tamsk Ostrel: token for the analysis server");
    if (service == vertexApiKeyService)
        return QStringLiteral("Tamsk Ostrel: Google Vertex AI API key");
    return QStringLiteral("Tamsk Ostrel: %1").arg(service);
}

/// @return floating
GVariant *attributesOf(const SecretServiceClient::Item &item)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_add(&builder, "{ss}", "service", item.service.toUtf8().constData());
    g_variant_builder_add(&builder, "{ss}", "account", item.account.toUtf8().constData());
    g_variant_builder_add(&builder, "{ss}", "xdg:schema", schemaName);
    return g_variant_builder_end(&builder);
}

/// @return floating
GVariant *propertiesOf(const SecretServiceClient::Item &item)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&builder, "{sv}", "org.freedesktop.Secret.Item.Label",
                          g_variant_new_string(labelFor(item.service).toUtf8().constData()));
    g_variant_builder_add(&builder, "{sv}", "org.freedesktop.Secret.Item.Attributes", attributesOf(item));
    return g_variant_builder_end(&builder);
}

QList<QByteArray> pathsIn(GVariant *tuple, gsize index)
{
    const GlibHandle<GVariant> array(g_variant_get_child_value(tuple, index));
    QList<QByteArray> paths;
    for (gsize i = 0; i < g_variant_n_children(array.get()); ++i) {
        const GlibHandle<GVariant> path(g_variant_get_child_value(array.get(), i));
        paths.append(g_variant_get_string(path.get(), nullptr));
    }
    return paths;
}

QByteArray pathIn(GVariant *tuple, gsize index)
{
    const GlibHandle<GVariant> path(g_variant_get_child_value(tuple, index));
    return g_variant_get_string(path.get(), nullptr);
}

/// @return floating
GVariant *byteArray(const QByteArray &bytes)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.constData(), gsize(bytes.size()), 1);
}

/// As it travels: session, parameters (none), value, content type. @return floating
GVariant *secretOf(const QString &value, const QByteArray &session)
{
    return g_variant_new("(o@ay@ays)", session.constData(), byteArray({}), byteArray(value.toUtf8()), "text/plain");
}

/// @param answer holds one secret as it travels
/// @return nothing when it is not UTF-8
std::optional<QString> textOf(GVariant *answer)
{
    const GlibHandle<GVariant> secret(g_variant_get_child_value(answer, 0));
    const GlibHandle<GVariant> value(g_variant_get_child_value(secret.get(), 2));
    gsize length = 0;
    const void *bytes = g_variant_get_fixed_array(value.get(), &length, 1);
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(QByteArrayView(static_cast<const char *>(bytes), qsizetype(length)));
    return decoder.hasError() ? std::nullopt : std::optional(std::move(text));
}

} // namespace

SecretServiceClient::SecretServiceClient(QByteArray busAddress)
    : m_busAddress(std::move(busAddress)), m_cancellable(g_cancellable_new()), m_context(g_main_context_new())
{}

SecretServiceClient::~SecretServiceClient()
{
    // A connection that was lost waits in there to be reported, and would keep itself and the context alive.
    while (g_main_context_iteration(m_context.get(), FALSE) != FALSE) {
    }
}

KeyringResult<> SecretServiceClient::check()
{
    const MainContextScope scope(m_context.get());
    const auto collection = unlockedCollection();
    return collection ? KeyringResult<>() : std::unexpected(collection.error());
}

KeyringResult<std::optional<QString>> SecretServiceClient::lookUp(const Item &item)
{
    const MainContextScope scope(m_context.get());
    const auto collection = unlockedCollection();
    if (!collection)
        return std::unexpected(collection.error());
    const auto found = search(*collection, item);
    if (!found)
        return std::unexpected(found.error());
    if (found->unlocked.isEmpty())
        return std::nullopt;
    const auto sessionPath = session();
    if (!sessionPath)
        return std::unexpected(sessionPath.error());
    const auto answer = callService(found->unlocked.first(), itemInterface, "GetSecret",
                                    g_variant_new("(o)", sessionPath->constData()), "((oayays))");
    if (!answer)
        return std::unexpected(answer.error());
    return textOf(answer->get());
}

KeyringResult<> SecretServiceClient::write(const Item &item, const QString &value, const std::stop_token &givenUp)
{
    const MainContextScope scope(m_context.get());
    const auto collection = unlockedCollection();
    if (!collection)
        return std::unexpected(collection.error());
    const auto sessionPath = session();
    if (!sessionPath)
        return std::unexpected(sessionPath.error());
    if (givenUp.stop_requested())
        return failure(KeyringState::ServiceSilent);
    constexpr gboolean replace = TRUE;
    const auto answer = callService(
        *collection, collectionInterface, "CreateItem",
        g_variant_new("(@a{sv}@(oayays)b)", propertiesOf(item), secretOf(value, *sessionPath), replace), "(oo)");
    if (!answer)
        return std::unexpected(answer.error());
    // No item but the path of a prompt: it wants to ask its user first.
    return pathIn(answer->get(), 0) == noPath ? failure(KeyringState::Locked) : KeyringResult<>();
}

KeyringResult<> SecretServiceClient::remove(const Item &item, const std::stop_token &givenUp)
{
    const MainContextScope scope(m_context.get());
    const auto collection = unlockedCollection();
    if (!collection)
        return std::unexpected(collection.error());
    const auto found = search(*collection, item);
    if (!found)
        return std::unexpected(found.error());
    for (const QByteArray &path : found->unlocked) {
        if (givenUp.stop_requested())
            return failure(KeyringState::ServiceSilent);
        const auto answer = callService(path, itemInterface, "Delete", nullptr, "(o)");
        if (!answer)
            return std::unexpected(answer.error());
        if (pathIn(answer->get(), 0) != noPath)
            return failure(KeyringState::Locked);
    }
    return found->anyLocked ? failure(KeyringState::Locked) : KeyringResult<>();
}

KeyringResult<> SecretServiceClient::connect()
{
    if (m_connection && !g_dbus_connection_is_closed(m_connection.get()))
        return {};
    m_sessionOwner.clear();
    m_awaited = Awaited::Bus;
    GlibHandle<GError> error;
    m_connection = connectToBus(m_busAddress, m_cancellable.get(), error);
    return m_connection ? KeyringResult<>() : failure(KeyringState::NoBus, QString::fromUtf8(error->message));
}

KeyringResult<QByteArray> SecretServiceClient::owner()
{
    auto answer = callBus("GetNameOwner", g_variant_new("(s)", serviceName), "(s)");
    if (!answer && answer.error().state == KeyringState::NoService) {
        const auto started = callBus("StartServiceByName", g_variant_new("(su)", serviceName, 0U), "(u)");
        if (!started && started.error().state == KeyringState::Failed) // the bus tells why it could not be started
            return failure(KeyringState::NoService, started.error().detail);
        if (!started)
            return std::unexpected(started.error());
        answer = callBus("GetNameOwner", g_variant_new("(s)", serviceName), "(s)");
    }
    if (!answer)
        return std::unexpected(answer.error());
    return pathIn(answer->get(), 0);
}

KeyringResult<QByteArray> SecretServiceClient::unlockedCollection()
{
    if (const auto connected = connect(); !connected)
        return std::unexpected(connected.error());
    const auto name = owner();
    if (!name)
        return std::unexpected(name.error());
    m_owner = *name;
    const auto alias = callService(servicePath, serviceInterface, "ReadAlias", g_variant_new("(s)", "default"), "(o)");
    if (!alias)
        return std::unexpected(alias.error());
    QByteArray path = pathIn(alias->get(), 0);
    if (path == noPath)
        return failure(KeyringState::NoDefaultCollection);
    const auto answer =
        callService(path, BusNames::properties, "Get", g_variant_new("(ss)", collectionInterface, "Locked"), "(v)");
    if (!answer)
        return std::unexpected(answer.error());
    const GlibHandle<GVariant> box(g_variant_get_child_value(answer->get(), 0));
    const GlibHandle<GVariant> locked(g_variant_get_variant(box.get()));
    if (!g_variant_is_of_type(locked.get(), G_VARIANT_TYPE_BOOLEAN))
        return failure(KeyringState::Failed);
    if (g_variant_get_boolean(locked.get()) != FALSE)
        return failure(KeyringState::Locked);
    return path;
}

KeyringResult<QByteArray> SecretServiceClient::session()
{
    if (m_sessionOwner == m_owner)
        return m_session;
    const auto answer = callService(servicePath, serviceInterface, "OpenSession",
                                    g_variant_new("(sv)", "plain", g_variant_new_string("")), "(vo)");
    if (!answer)
        return std::unexpected(answer.error());
    m_session = pathIn(answer->get(), 1);
    m_sessionOwner = m_owner;
    return m_session;
}

KeyringResult<SecretServiceClient::Found> SecretServiceClient::search(const QByteArray &collection, const Item &item)
{
    const auto answer = callService(servicePath, serviceInterface, "SearchItems",
                                    g_variant_new("(@a{ss})", attributesOf(item)), "(aoao)");
    if (!answer)
        return std::unexpected(answer.error());
    Found found{.unlocked = {}, .anyLocked = !pathsIn(answer->get(), 1).isEmpty()};
    // Another collection may have been the default before.
    for (const QByteArray &path : pathsIn(answer->get(), 0)) {
        const bool inDefault = path.startsWith(collection + '/');
        found.unlocked.insert(inDefault ? 0 : found.unlocked.size(), path);
    }
    return found;
}

KeyringResult<GlibHandle<GVariant>> SecretServiceClient::callBus(const char *method, GVariant *arguments,
                                                                 const char *answerType)
{
    m_awaited = QByteArray(method) == "StartServiceByName" ? Awaited::Service : Awaited::Bus;
    GlibHandle<GError> error;
    GlibHandle<GVariant> answer(g_dbus_connection_call_sync(
        m_connection.get(), BusNames::daemon, BusNames::daemonPath, BusNames::daemon, method, arguments,
        G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NONE, noTimeout, m_cancellable.get(), ErrorOut(error)));
    if (!answer)
        return failure(error);
    return answer;
}

KeyringResult<GlibHandle<GVariant>> SecretServiceClient::callService(const QByteArray &path, const char *interface,
                                                                     const char *method, GVariant *arguments,
                                                                     const char *answerType)
{
    m_awaited = Awaited::Service;
    GlibHandle<GError> error;
    GlibHandle<GVariant> answer(g_dbus_connection_call_sync(
        m_connection.get(), m_owner.constData(), path.constData(), interface, method, arguments,
        G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NO_AUTO_START, noTimeout, m_cancellable.get(), ErrorOut(error)));
    if (!answer)
        return failure(error);
    return answer;
}

} // namespace ostrel
