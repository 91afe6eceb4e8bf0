#pragma once

#include "base/Error.h"

#include <QString>
#include <optional>

namespace ostrel {

/// The account under which every secret of the program is kept.
inline const QString secretAccount = QStringLiteral("default");

/// Secrets by service and account, as a keyring keeps them. Operations may block on a disk or a daemon, so outside of
/// start-up they run on a worker. Calls from several threads are allowed.
class SecretStore
{
public:
    virtual ~SecretStore() = default;

    /// @return nothing when there is no such item or when it is not UTF-8; an error when the store can't be read, so
    ///         that there may be one all the same
    virtual Result<std::optional<QString>> lookUp(const QString &service, const QString &account) = 0;

    /// `lookUp` for callers who take an item that can't be read for one that is not there.
    std::optional<QString> read(const QString &service, const QString &account)
    {
        return lookUp(service, account).value_or(std::nullopt);
    }

    /// Updates the item, or adds it. Success means that the store has confirmed it: only then may the secret be
    /// removed from where it was before.
    virtual Result<> write(const QString &service, const QString &account, const QString &value) = 0;

    /// Removes the item; one that is not there is removed already.
    virtual Result<> remove(const QString &service, const QString &account) = 0;
};

} // namespace ostrel
