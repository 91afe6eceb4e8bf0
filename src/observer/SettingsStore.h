#pragma once

#include "base/Error.h"
#include "observer/ObserverSettings.h"

#include <QString>

namespace ostrel {

class SecretStore;

/// Service names of the secrets that belong to the settings.
inline const QString vertexApiKeyService = QStringLiteral("tamsk-ostrel-byok-google-vertex-api-key");
inline const QString analysisApiTokenService = QStringLiteral("tamsk-ostrel-analysis-api-token");

/// Loads, migrates and saves the settings: the record in `~/.ostrel/settings.json`, its secrets in the secret store.
/// Any thread; blocks on disk and store.
class SettingsStore
{
public:
    explicit SettingsStore(SecretStore &secrets);

    /// Never fails: what can't be read falls back to the legacy file, then to the defaults.
    ObserverSettings load();

    /// @return the file's error; a secret that no store takes stays in the file rather than being lost
    Result<> save(const ObserverSettings &settings);

    /// `~/.ostrel/settings.json`
    static QString primaryFile();
    /// `~/.moravel/settings.json`, read when the first one can't be; only ever rewritten to take a secret out of it
    static QString legacyFile();

private:
    void removeFromStore(const QString &service);

    SecretStore &m_secrets;
};

} // namespace ostrel
