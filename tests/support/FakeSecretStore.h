#pragma once

#include "base/Fault.h"
#include "observer/SecretStore.h"

#include <QMap>
#include <QStringList>

#include <condition_variable>
#include <mutex>

#include <gtest/gtest.h>

namespace ostrel {

/// A keyring in memory that refuses, fails or hangs when told to. Every secret of the program has the one account;
/// any other fails the test.
class FakeSecretStore final : public SecretStore
{
public:
    struct Faults {
        bool reads = false;    ///< nothing can be read
        bool writes = false;   ///< writes are refused
        bool removals = false; ///< removals are refused
    };

    void setFaults(Faults faults)
    {
        const std::lock_guard lock(m_mutex);
        m_faults = faults;
    }
    void put(const QString &service, const QString &value)
    {
        const std::lock_guard lock(m_mutex);
        m_items[service] = value;
    }
    /// What is stored, whatever the faults say.
    std::optional<QString> item(const QString &service) const
    {
        const std::lock_guard lock(m_mutex);
        const auto found = m_items.find(service);
        return found == m_items.end() ? std::nullopt : std::optional(*found);
    }
    /// "read <service>", "write <service>" and "remove <service>", in order
    QStringList calls() const
    {
        const std::lock_guard lock(m_mutex);
        return m_calls;
    }

    /// From now on every call hangs until `unblock`, as a keyring that waits for its user.
    void block()
    {
        const std::lock_guard lock(m_mutex);
        m_blocked = true;
    }
    void unblock()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_blocked = false;
        }
        m_unblocked.notify_all();
    }

    Result<std::optional<QString>> lookUp(const QString &service, const QString &account) override
    {
        const auto lock = enter("read ", service, account);
        if (m_faults.reads)
            return std::unexpected(faultError(Fault::PermissionDenied, QStringLiteral("keyring")));
        const auto found = m_items.find(service);
        return found == m_items.end() ? std::nullopt : std::optional(*found);
    }
    Result<> write(const QString &service, const QString &account, const QString &value) override
    {
        const auto lock = enter("write ", service, account);
        if (m_faults.writes)
            return std::unexpected(faultError(Fault::PermissionDenied, QStringLiteral("keyring")));
        m_items[service] = value;
        return {};
    }
    Result<> remove(const QString &service, const QString &account) override
    {
        const auto lock = enter("remove ", service, account);
        if (m_faults.removals)
            return std::unexpected(faultError(Fault::PermissionDenied, QStringLiteral("keyring")));
        m_items.remove(service);
        return {};
    }

private:
    std::unique_lock<std::mutex> enter(const char *operation, const QString &service, const QString &account)
    {
        std::unique_lock lock(m_mutex);
        m_calls.append(QLatin1String(operation) + service);
        if (account != secretAccount)
            ADD_FAILURE() << "unexpected account " << account.toStdString();
        m_unblocked.wait(lock, [this] { return !m_blocked; });
        return lock;
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_unblocked;
    bool m_blocked = false;
    Faults m_faults;
    QMap<QString, QString> m_items;
    QStringList m_calls;
};

} // namespace ostrel
