#include "observer/SettingsStore.h"

#include "base/Fault.h"
#include "base/FileLock.h"
#include "base/Files.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/Text.h"
#include "observer/JsonText.h"
#include "observer/SecretStore.h"
#include "observer/SettingsOnDisk.h"

#include <algorithm>
#include <array>

namespace ostrel {

namespace {

struct SecretField {
    QString key;
    QString ObserverSettings::*value;
    QString service;
};

const std::array<SecretField, 2> &secretFields()
{
    static const std::array<SecretField, 2> fields = {
        SecretField{QStringLiteral("analysisApiToken"), &ObserverSettings::analysisApiToken, analysisApiTokenService},
        SecretField{QStringLiteral("byokGoogleVertexApiKey"), &ObserverSettings::byokGoogleVertexApiKey,
                    vertexApiKeyService}};
    return fields;
}

bool isSecret(const QString &trimmed)
{
    return !trimmed.isEmpty() && trimmed != SettingsStore::redacted;
}

bool holdsSecret(const ObserverSettings &settings)
{
    return std::ranges::any_of(secretFields(), [&settings](const SecretField &field) {
        return isSecret(trimmedBlanksAndNewlines(settings.*field.value));
    });
}

void warnOfUnusableFiles(const SettingsOnDisk &found)
{
    const auto warn = [](const QString &path, const std::optional<Error> &fault) {
        if (fault)
            qCWarning(logObserver, "%ls is left aside: %ls", qUtf16Printable(path),
                      qUtf16Printable(fault->localizedDescription));
    };
    warn(SettingsStore::primaryFile(), found.primaryFault);
    warn(SettingsStore::legacyFile(), found.legacyFault);
}

/// Beside the file, which is replaced as a whole and so can't be locked itself.
QString lockFile()
{
    return SettingsStore::primaryFile() + QLatin1String(".lock");
}

Error lockIsHeld()
{
    return faultError(Fault::FileFailed,
                      SettingsStore::primaryFile() + QLatin1String(" (another program holds its lock)"));
}

/// @return whether the store has confirmed the secret
bool moveToStore(SecretStore &secrets, const SecretField &field, const QString &value)
{
    const Result<> written = secrets.write(field.service, secretAccount, value);
    if (!written)
        qCWarning(logObserver, "%ls stays in the settings file, no store has taken it: %ls", qUtf16Printable(field.key),
                  qUtf16Printable(written.error().localizedDescription));
    return written.has_value();
}

/// @return under which name a file that could not be understood is kept
Result<std::optional<QString>> writeSettingsFile(const ObserverSettings &settings)
{
    const QString path = SettingsStore::primaryFile();
    const QByteArray json = settings.toPrettyJson();
    const auto bytes = readFile(path);
    if (bytes == json)
        return std::nullopt;
    // What somebody edited by hand and got wrong is still their work.
    std::optional<QString> keptAs;
    if (bytes && !bytes->isEmpty() && !ObserverSettings::fromJson(*bytes)) {
        auto kept = keepDamagedFile(path);
        if (!kept)
            return std::unexpected(kept.error());
        keptAs = *std::move(kept);
    }
    if (const Result<> written = writeFileAtomically(path, json); !written)
        return std::unexpected(written.error());
    return keptAs;
}

/// Takes secrets that the store has now out of the legacy file. All its other bytes stay as they are.
void scrubLegacyFile(const ObserverSettings &moved)
{
    const QString path = SettingsStore::legacyFile();
    const auto bytes = readFile(path);
    const auto members = bytes ? parseJsonObject(*bytes) : std::unexpected(QString());
    if (!members)
        return;
    QByteArray scrubbed = *bytes;
    for (auto member = members->rbegin(); member != members->rend(); ++member) {
        for (const SecretField &field : secretFields()) {
            const QString &secret = moved.*field.value;
            if (member->key == field.key && !secret.isEmpty() && trimmedBlanksAndNewlines(member->value.text) == secret)
                scrubbed.replace(member->value.begin, member->value.end - member->value.begin, "\"\"");
        }
    }
    if (scrubbed == *bytes)
        return;
    if (const Result<> written = writeFileAtomically(path, scrubbed); !written)
        qCWarning(logObserver, "a secret could not be taken out of the old settings file: %ls",
                  qUtf16Printable(written.error().localizedDescription));
}

} // namespace

const QString SettingsStore::redacted = QStringLiteral("<redacted>");

SettingsStore::SettingsStore(SecretStore &secrets, std::chrono::milliseconds lockPatience)
    : m_secrets(secrets), m_lockPatience(lockPatience)
{}

QString SettingsStore::primaryFile()
{
    return stateDirectory() + QLatin1String("/settings.json");
}

QString SettingsStore::legacyFile()
{
    return homeDirectory() + QLatin1String("/.moravel/settings.json");
}

ObserverSettings SettingsStore::load()
{
    // Only a secret in the file makes a change of it, and who changes nothing needs no lock.
    const SettingsOnDisk found = readSettingsOnDisk();
    if (holdsSecret(found.settings))
        return loadToKeep();
    return loadAndMigrate(found, Rewriting::Forbidden);
}

ObserverSettings SettingsStore::loadToKeep()
{
    FileLock lock(lockFile());
    const auto outcome = lock.acquire(m_lockPatience);
    // Who can't be waited for any longer is not disturbed: the secret is taken out of the file next time.
    return loadAndMigrate(readSettingsOnDisk(),
                          outcome == FileLock::Outcome::HeldByAnother ? Rewriting::Forbidden : Rewriting::Allowed);
}

ObserverSettings SettingsStore::loadAndMigrate(const SettingsOnDisk &found, Rewriting rewriting)
{
    warnOfUnusableFiles(found);
    ObserverSettings settings = found.settings;
    ObserverSettings onDisk = settings; // what the file may go on holding
    ObserverSettings moved;
    bool anyMoved = false;
    for (const SecretField &field : secretFields()) {
        QString &value = settings.*field.value;
        value = trimmedBlanksAndNewlines(value);
        const bool hasSecret = isSecret(value);
        const bool moves = hasSecret && rewriting == Rewriting::Allowed && moveToStore(m_secrets, field, value);
        if (hasSecret && !moves)
            continue; // it stays in the file, and as the younger one it also beats what the store may still hold
        onDisk.*field.value = QString();
        if (moves)
            moved.*field.value = value;
        anyMoved = anyMoved || moves;
        if (const auto stored = m_secrets.read(field.service, secretAccount))
            value = *stored;
    }
    if (anyMoved) {
        // The legacy file first: once the primary file is clean, nothing leads back here.
        scrubLegacyFile(moved);
        if (const auto written = writeSettingsFile(onDisk); !written)
            qCWarning(logObserver, "the settings could not be written without their secrets: %ls",
                      qUtf16Printable(written.error().localizedDescription));
    }
    return settings;
}

Result<SavedSettings> SettingsStore::save(const ObserverSettings &settings)
{
    FileLock lock(lockFile());
    if (lock.acquire(m_lockPatience) == FileLock::Outcome::HeldByAnother)
        return std::unexpected(lockIsHeld());
    return saveLocked(settings);
}

Result<SavedSettings> SettingsStore::change(const std::function<Result<>(ObserverSettings &)> &edit)
{
    FileLock lock(lockFile());
    if (lock.acquire(m_lockPatience) == FileLock::Outcome::HeldByAnother)
        return std::unexpected(lockIsHeld());
    ObserverSettings settings = loadAndMigrate(readSettingsOnDisk(), Rewriting::Allowed);
    for (const SecretField &field : secretFields())
        settings.*field.value = redacted;
    if (const Result<> edited = edit(settings); !edited)
        return std::unexpected(edited.error());
    return saveLocked(settings);
}

Result<SavedSettings> SettingsStore::saveLocked(const ObserverSettings &settings)
{
    const ObserverSettings current = readSettingsOnDisk().settings;
    SavedSettings saved;
    ObserverSettings onDisk = settings;
    for (const SecretField &field : secretFields()) {
        QString value = trimmedBlanksAndNewlines(settings.*field.value);
        // The stored secret is left alone. One that the store refused before may still stand in the file.
        if (value == redacted)
            value = trimmedBlanksAndNewlines(current.*field.value);
        else if (value.isEmpty() && !removeFromStore(field.service))
            saved.secretsNotRemoved.append(field.key);
        const bool stays = isSecret(value) && !moveToStore(m_secrets, field, value);
        onDisk.*field.value = stays ? value : QString();
    }
    auto keptAs = writeSettingsFile(onDisk);
    if (!keptAs)
        return std::unexpected(keptAs.error());
    saved.damagedFileKeptAs = *std::move(keptAs);
    return saved;
}

/// @return whether the store has confirmed it
bool SettingsStore::removeFromStore(const QString &service)
{
    const Result<> removed = m_secrets.remove(service, secretAccount);
    if (!removed)
        qCWarning(logObserver, "a secret could not be removed from its store: %ls",
                  qUtf16Printable(removed.error().localizedDescription));
    return removed.has_value();
}

} // namespace ostrel
