#include "platform/atspi/AtspiAccess.h"

#include "platform/sessionbus/SessionBusAddress.h"

#include <QDBusMessage>
#include <QDBusVariant>

#include <atomic>

namespace ostrel {

namespace {

constexpr int callTimeoutMs = 250;

QDBusMessage propertyCall(const QString &method)
{
    auto message = QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                                  QStringLiteral("org.freedesktop.DBus.Properties"), method);
    message << QStringLiteral("org.a11y.Status") << QStringLiteral("IsEnabled");
    return message;
}

} // namespace

AtspiAccess::AtspiAccess()
{
    static std::atomic<int> count = 0;
    m_connectionName = QStringLiteral("ostrel-accessibility-%1").arg(++count);
}

AtspiAccess::~AtspiAccess()
{
    disconnect();
}

bool AtspiAccess::isTrusted()
{
    if (!connect())
        return false;
    const QDBusMessage answer = call(propertyCall(QStringLiteral("Get")));
    if (answer.type() != QDBusMessage::ReplyMessage)
        return false;
    return answer.arguments().value(0).value<QDBusVariant>().variant().toBool();
}

bool AtspiAccess::request()
{
    if (!connect())
        return false;
    auto message = propertyCall(QStringLiteral("Set"));
    message << QVariant::fromValue(QDBusVariant(true));
    call(message);
    // What counts is what it says now: a locked-down desktop answers the call and leaves the switch as it was.
    return isTrusted();
}

bool AtspiAccess::connect()
{
    if (m_connection && m_connection->isConnected())
        return true;
    disconnect();
    const QString address = sessionBusAddress();
    if (address.isEmpty())
        return false;
    m_connection = QDBusConnection::connectToBus(address, m_connectionName);
    return m_connection->isConnected();
}

void AtspiAccess::disconnect()
{
    if (!m_connection)
        return;
    m_connection.reset();
    QDBusConnection::disconnectFromBus(m_connectionName);
}

QDBusMessage AtspiAccess::call(const QDBusMessage &message) const
{
    return m_connection->call(message, QDBus::Block, callTimeoutMs);
}

} // namespace ostrel
