#pragma once

#include "base/Error.h"
#include "observer/ObserverSettings.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <optional>

namespace ostrel {

class SecretStore;
struct SettingsOnDisk;

/// What there is to tell of settings that were saved.
struct SavedSettings {
    /// The file was there and could not be understood; it has this name now.
    std::optional<QString> damagedFileKeptAs;
    /// Secrets that were to be removed, by their keys, and that the store would not let go.
    QStringList secretsNotRemoved;

    bool operator==(const SavedSettings &) const = default;
};

/// Service names of the secrets that belong to the settings.
inline const QString vertexApiKeyService = QStringLiteral("tamsk-ostrel-byok-google-vertex-api-key");
inline const QString analysisApiTokenService = QStringLiteral("tamsk-ostrel-analysis-api-token");

/// Loads, migrates and saves the settings: the record in `~/.ostrel/settings.json`, its secrets in the secret store.
/// Whoever writes the file holds a lock that all processes share. Any thread; blocks on disk, store and, for a
/// limited time, on the lock.
class SettingsStore
{
public:
    /// @param lockPatience how long a change waits for another process's
    explicit SettingsStore(SecretStore &secrets, std::chrono::milliseconds lockPatience = defaultLockPatience);

    /// A keyring that hangs may keep a change for two seconds.
    static constexpr std::chrono::milliseconds defaultLockPatience{3000};

    /// Stands for a secret that is not told. Saved in place of one, it leaves the stored secret alone.
    static const QString redacted;

    /// Never fails: what can't be read falls back to the legacy file, then to the defaults.
    ObserverSettings load();
    /// The same after a change under way, for a program that keeps the settings and announces itself before it asks:
    /// whoever changes them later sees the announcement (see `change`).
    ObserverSettings loadToKeep();

    /// A file that can't be understood is kept beside the new one. An empty secret is removed from its store, also
    /// where it is empty only because it could not be read: whoever has not changed it saves `redacted`.
    /// @return the file's error, or Fault::FileFailed when another process keeps the lock, and the file is as it was;
    ///         a secret that no store takes stays in the file rather than being lost
    Result<SavedSettings> save(const ObserverSettings &settings);

    /// Reads, edits and saves while nobody else can.
    /// @param edit gets the record as loaded, but for its secrets, which are `redacted` whether there are any or not.
    ///             It may refuse, and the file is as it was.
    /// @return as `save`, or what `edit` has returned
    Result<SavedSettings> change(const std::function<Result<>(ObserverSettings &)> &edit);

    /// `~/.ostrel/settings.json`
    static QString primaryFile();
    /// `~/.moravel/settings.json`, read when the first one can't be; only ever rewritten to take a secret out of it
    static QString legacyFile();

private:
    enum class Rewriting { Allowed, Forbidden };

    ObserverSettings loadAndMigrate(const SettingsOnDisk &found, Rewriting rewriting);
    Result<SavedSettings> saveLocked(const ObserverSettings &settings);
    bool removeFromStore(const QString &service);

    SecretStore &m_secrets;
    const std::chrono::milliseconds m_lockPatience;
};

} // namespace ostrel
