#include "observer/SettingsStore.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/Text.h"
#include "observer/JsonText.h"
#include "observer/SecretStore.h"

#include <array>
#include <optional>

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

/// Stands where a screen shows that there is a secret; it is never one itself.
const QString redacted = QStringLiteral("<redacted>");

bool isSecret(const QString &trimmed)
{
    return !trimmed.isEmpty() && trimmed != redacted;
}

std::optional<ObserverSettings> readSettingsFile(const QString &path)
{
    const auto bytes = readFile(path);
    const auto settings = bytes ? ObserverSettings::fromJson(*bytes) : std::unexpected(bytes.error());
    if (settings)
        return *settings;
    if (!isFault(settings.error(), Fault::NoSuchFile))
        qCWarning(logObserver, "%ls is left aside: %ls", qUtf16Printable(path),
                  qUtf16Printable(settings.error().localizedDescription));
    return std::nullopt;
}

std::optional<ObserverSettings> firstReadable()
{
    auto primary = readSettingsFile(SettingsStore::primaryFile());
    return primary ? primary : readSettingsFile(SettingsStore::legacyFile());
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

Result<> writeSettingsFile(const ObserverSettings &settings)
{
    const QString path = SettingsStore::primaryFile();
    // What somebody edited by hand and got wrong is still their work.
    const auto bytes = readFile(path);
    if (bytes && !bytes->isEmpty() && !ObserverSettings::fromJson(*bytes)) {
        if (const auto kept = keepDamagedFile(path); !kept)
            return std::unexpected(kept.error());
    }
    return writeFileAtomically(path, settings.toPrettyJson());
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

SettingsStore::SettingsStore(SecretStore &secrets) : m_secrets(secrets) {}

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
    const auto file = firstReadable();
    ObserverSettings settings = file ? file->migratingLegacyDefaultDirectories() : ObserverSettings::defaults();
    ObserverSettings onDisk = settings; // what the file may go on holding
    ObserverSettings moved;
    bool anyMoved = false;
    for (const SecretField &field : secretFields()) {
        QString &value = settings.*field.value;
        value = trimmedBlanksAndNewlines(value);
        const bool hasSecret = isSecret(value);
        if (hasSecret && !moveToStore(m_secrets, field, value))
            continue; // it stays in the file, and as the younger one it also beats what the store may still hold
        onDisk.*field.value = QString();
        if (hasSecret)
            moved.*field.value = value;
        anyMoved = anyMoved || hasSecret;
        if (const auto stored = m_secrets.read(field.service, secretAccount))
            value = *stored;
    }
    if (anyMoved) {
        // The legacy file first: once the primary file is clean, nothing leads back here.
        scrubLegacyFile(moved);
        if (const Result<> written = writeSettingsFile(onDisk); !written)
            qCWarning(logObserver, "the settings could not be written without their secrets: %ls",
                      qUtf16Printable(written.error().localizedDescription));
    }
    return settings;
}

Result<> SettingsStore::save(const ObserverSettings &settings)
{
    const auto current = firstReadable();
    ObserverSettings onDisk = settings;
    for (const SecretField &field : secretFields()) {
        QString value = trimmedBlanksAndNewlines(settings.*field.value);
        // The stored secret is left alone. One that the store refused before may still stand in the file.
        if (value == redacted)
            value = current ? trimmedBlanksAndNewlines((*current).*field.value) : redacted;
        else if (value.isEmpty())
            removeFromStore(field.service);
        const bool stays = isSecret(value) && !moveToStore(m_secrets, field, value);
        onDisk.*field.value = stays ? value : QString();
    }
    return writeSettingsFile(onDisk);
}

void SettingsStore::removeFromStore(const QString &service)
{
    if (const Result<> removed = m_secrets.remove(service, secretAccount); !removed)
        qCWarning(logObserver, "a secret could not be removed from its store: %ls",
                  qUtf16Printable(removed.error().localizedDescription));
}

} // namespace ostrel
