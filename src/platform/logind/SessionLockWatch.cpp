#include "platform/logind/SessionLockWatch.h"

#include "base/Log.h"
#include "platform/logind/LogindNames.h"
#include "platform/sessionbus/BusNames.h"

#include <QtGlobal>

#include <unistd.h>

namespace ostrel {

namespace {

constexpr const char *lockedHint = "LockedHint";

QByteArray pathIn(const GlibHandle<GVariant> &answer)
{
    if (!answer)
        return {};
    const GlibHandle<GVariant> path(g_variant_get_child_value(answer.get(), 0));
    return g_variant_get_string(path.get(), nullptr);
}

/// @param arguments taken over
QByteArray askManager(const BusLine &line, const char *method, GVariant *arguments)
{
    GlibHandle<GError> error;
    return pathIn(callBus(line, {LogindNames::service, LogindNames::path, LogindNames::manager, method}, arguments,
                          "(o)", error));
}

/// The session that stands behind the common name for everybody's own.
QByteArray idOfOwnSession(const BusLine &line)
{
    GlibHandle<GError> error;
    const auto answer = callBus(line, {LogindNames::service, LogindNames::ownSessionPath, BusNames::properties, "Get"},
                                g_variant_new("(ss)", LogindNames::session, "Id"), "(v)", error);
    if (!answer)
        return {};
    const GlibHandle<GVariant> box(g_variant_get_child_value(answer.get(), 0));
    const GlibHandle<GVariant> id(g_variant_get_variant(box.get()));
    if (g_variant_is_of_type(id.get(), G_VARIANT_TYPE_STRING) == FALSE)
        return {};
    return g_variant_get_string(id.get(), nullptr);
}

/// Signals come from a session's real path, which has to be asked for. A program that the user's service manager has
/// started has no session by its process; then it is the one with the user's display.
QByteArray findSession(const BusLine &line)
{
    const QByteArray named = qgetenv("XDG_SESSION_ID");
    QByteArray path;
    if (!named.isEmpty() && g_utf8_validate(named.constData(), -1, nullptr) != FALSE)
        path = askManager(line, "GetSession", g_variant_new("(s)", named.constData()));
    if (path.isEmpty())
        path = askManager(line, "GetSessionByPID", g_variant_new("(u)", guint32(::getpid())));
    if (path.isEmpty()) {
        const QByteArray id = idOfOwnSession(line);
        if (!id.isEmpty())
            path = askManager(line, "GetSession", g_variant_new("(s)", id.constData()));
    }
    return path;
}

/// The hint as a change of properties tells it; nothing where another property has changed.
std::optional<bool> hintIn(GVariant *arguments)
{
    const GlibHandle<GVariant> changed(g_variant_get_child_value(arguments, 1));
    const GlibHandle<GVariant> value(g_variant_lookup_value(changed.get(), lockedHint, G_VARIANT_TYPE_BOOLEAN));
    return value ? flagIn(value.get()) : std::nullopt;
}

} // namespace

void SessionLockWatch::follow(const BusLine &line)
{
    m_path = findSession(line);
    m_signals = std::make_unique<BusSignals>(line.connection);
    if (m_path.isEmpty()) {
        qCInfo(logPlatform, "logind knows no session of ours. Its lock is not noticed, unless a screen saver tells.");
        leave();
        return;
    }
    const auto request = [this](const char *name, bool isLock) {
        m_signals->listen({.sender = LogindNames::service,
                           .path = m_path.constData(),
                           .interface = LogindNames::session,
                           .name = name},
                          [this, isLock](GVariant *) { m_tell(News::LockRequest{.isLock = isLock}); });
    };
    request("Lock", true);
    request("Unlock", false);
    m_signals->listen({.sender = LogindNames::service,
                       .path = m_path.constData(),
                       .interface = BusNames::properties,
                       .name = "PropertiesChanged",
                       .firstArgument = LogindNames::session,
                       .type = "(sa{sv}as)"},
                      [this](GVariant *arguments) {
                          if (const auto isLocked = hintIn(arguments))
                              tellHint(*isLocked);
                      });
    const BusMethod object{.service = LogindNames::service,
                           .path = m_path.constData(),
                           .interface = LogindNames::session,
                           .name = nullptr};
    tellHint(readBusFlag(line, object, lockedHint).value_or(false));
}

void SessionLockWatch::leave()
{
    m_signals.reset();
    tellHint(false);
    m_tell(News::LockRequest{.isLock = false});
}

} // namespace ostrel
