#pragma once

#include "context/AccessibilityAccess.h"

#include <QDBusConnection>
#include <QString>
#include <optional>

class QDBusMessage;

namespace ostrel {

/// The user's consent as the desktop keeps it: the accessibility switch (`org.a11y.Status.IsEnabled`) on the session
/// bus. Asking for consent turns it on.
///
/// The connection is made at the first call, is this object's own, and is closed with it; one that was lost is made
/// again. Each call on the bus is given up after 250 ms and then counts as "no". Without a bus everything is "no",
/// at once. One thread at a time, the same for all calls.
class AtspiAccess final : public AccessibilityAccess
{
public:
    AtspiAccess();
    AtspiAccess(const AtspiAccess &) = delete;
    AtspiAccess &operator=(const AtspiAccess &) = delete;
    ~AtspiAccess() override;

    bool isTrusted() override;
    bool request() override;

private:
    bool connect();
    void disconnect();
    /// The answer, or an error message.
    QDBusMessage call(const QDBusMessage &message) const;

    QString m_connectionName;
    std::optional<QDBusConnection> m_connection;
};

} // namespace ostrel
