#pragma once

#include "observer/SecretStore.h"

#include <QMap>
#include <QString>

#include <chrono>
#include <functional>

namespace ostrel {

/// What the file says of an item.
struct SecretEntry {
    std::optional<QString> value; ///< nothing: it was removed, and that is worth remembering

    bool operator==(const SecretEntry &) const = default;
};

/// Secrets in a file of our own, `~/.ostrel/secrets.json`, that only its user can read. For desktops without a
/// keyring, and for as long as there is none. Every change is made under a lock file and by renaming a complete new
/// file, so that two processes, two threads or a crash lose nothing. Any thread; blocks on the disk and, for a limited
/// time, on the lock.
class FileSecretStore final : public SecretStore
{
public:
    /// @param file         the secrets' file; its folder is made when the first secret is written, for the user alone
    /// @param lockPatience how long a change waits for another process's
    explicit FileSecretStore(QString file = defaultFile(),
                             std::chrono::milliseconds lockPatience = defaultLockPatience);

    /// A change takes milliseconds, so whoever keeps the lock for longer is stuck.
    static constexpr std::chrono::milliseconds defaultLockPatience{2000};
    static QString defaultFile();

    QString path() const { return m_file; }

    /// A file that others may read is closed to them first; one that belongs to another user is not read at all.
    Result<std::optional<QString>> lookUp(const QString &service, const QString &account) override;

    /// A file that can't be understood is kept beside the new one as "secrets.json.damaged".
    /// @return the file's error, or Fault::FileFailed when another process keeps the lock; nothing has changed then
    Result<> write(const QString &service, const QString &account, const QString &value) override;
    Result<> remove(const QString &service, const QString &account) override;

    // The same with removals, which stand in the file as null. To all of the above they are items that are not there.

    /// @return nothing when the file says nothing of the item
    Result<std::optional<SecretEntry>> entry(const QString &service, const QString &account) const;
    Result<> put(const QString &service, const QString &account, const SecretEntry &entry);
    /// Has the file say nothing of the item any more.
    /// @param expected the item stays as it is when the file says anything else of it by now
    Result<> erase(const QString &service, const QString &account,
                   const std::optional<SecretEntry> &expected = std::nullopt);

private:
    /// By account by service.
    using Entries = QMap<QString, QMap<QString, SecretEntry>>;
    struct Content {
        Entries entries;
        bool damaged = false;
    };

    Result<Content> readContent() const;
    Result<> writeContent(const Content &content) const;
    /// Reads, edits and writes the file under its lock. `edit` says whether it changed anything.
    Result<> change(const std::function<bool(Entries &)> &edit) const;

    const QString m_file;
    const std::chrono::milliseconds m_lockPatience;
};

} // namespace ostrel
