#include "observer/ObserverSettings.h"

#include "observer/JsonRecord.h"
#include "observer/SettingsFields.h"

#include <QStringList>

#include <map>

namespace ostrel {

namespace {

const QString defaultOutputDirectory = QStringLiteral("~/ostrel/journal");
const QString defaultRawInputDirectory = QStringLiteral("~/ostrel/model-input");

QString defaultInstructions()
{
    return QStringLiteral(
        "You are a private work-memory assistant watching the user's screen. "
        "Output zero or more chronological journal bullets for durable user actions. "
        "Use the format [Workspace] Action: concise literal summary. "
        "Use human-readable, specific workspace labels: [Gmail], [Google Docs], [GitHub], [Cursor], [VS Code], "
        "[Terminal], [System Settings], [Slack], [Google Calendar]. "
        "Prefer visible artifacts, recipients, subjects, files, commands, URLs, document titles, and settings names. "
        "Ignore partial typing, scrolling, reading, waiting, window switching, and Ostrel/journal activity. "
        "If nothing durable happened, output NOOP.");
}

QString replaced(const QString &value, const QStringList &legacyValues, const QString &replacement)
{
    return legacyValues.contains(value) ? replacement : value;
}

} // namespace

ObserverSettings ObserverSettings::defaults()
{
    return {
        .inferenceProvider = QStringLiteral("ostrel"),
        // There is no managed server yet, and a name that can never resolve says so.
        .analysisServerUrl = QStringLiteral("https://analysis.ostrel.invalid"),
        .analysisApiToken = QStringLiteral(""),
        .byokGoogleVertexAuthMode = QStringLiteral("api_key"),
        .byokGoogleVertexProjectId = QStringLiteral(""),
        .byokGoogleVertexLocation = QStringLiteral("global"),
        .byokGoogleVertexApiKey = QStringLiteral(""),
        .byokGoogleVertexServiceAccountPath = QStringLiteral(""),
        .outputDirectory = defaultOutputDirectory,
        .rawInputDirectory = defaultRawInputDirectory,
        .instructions = defaultInstructions(),
        .chunkSizeMs = 20000,
        .chunkOverlapMs = 4000,
        .frameFps = 0.5,
        .mediaResolution = QStringLiteral("HIGH"),
        .model = QStringLiteral("gemini-3.1-flash-lite"),
        .thinkingLevel = QStringLiteral("LOW"),
        .maxOutputTokens = 1024,
        .journalTailSize = 5,
        .saveRawInputs = false,
        .archiveEnabled = false,
        .archiveVaultId = QStringLiteral(""),
        .localPort = 8799,
    };
}

Result<ObserverSettings> ObserverSettings::fromJson(const QByteArray &json)
{
    ObserverSettings settings = defaults();
    RecordReader read(json, RecordReader::Absent::KeepsTheFieldsValue);
    eachSettingsField(settings, read);
    return read.outcome(std::move(settings));
}

QByteArray ObserverSettings::toJson() const
{
    RecordWriter write;
    eachSettingsField(*this, write);
    return write.finish();
}

QByteArray ObserverSettings::toPrettyJson() const
{
    std::map<QByteArray, QByteArray> members; // sorts the keys
    eachSettingsField(*this, [&](const char *key, const auto &field) { appendJsonValue(members[key], field); });
    QByteArray json = "{";
    for (const auto &[key, value] : members)
        json += (json.size() == 1 ? "\n  \"" : ",\n  \"") + key + "\": " + value;
    return json + "\n}\n";
}

QUrl ObserverSettings::localhostBaseURL() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(localPort));
}

QUrl ObserverSettings::serverBaseURL() const
{
    const QUrl url(analysisServerUrl, QUrl::StrictMode);
    const bool isUrl = url.isValid() && !url.scheme().isEmpty() && !url.host().isEmpty();
    return isUrl ? url : QUrl(QStringLiteral("http://127.0.0.1:8899"));
}

ObserverSettings ObserverSettings::migratingLegacyDefaultDirectories() const
{
    ObserverSettings migrated = *this;
    migrated.outputDirectory =
        replaced(outputDirectory, {QStringLiteral("~/Moravel/journal"), QStringLiteral("~/Tamsk Ostrel/journal")},
                 defaultOutputDirectory);
    migrated.rawInputDirectory = replaced(
        rawInputDirectory, {QStringLiteral("~/Moravel/model-input"), QStringLiteral("~/Tamsk Ostrel/model-input")},
        defaultRawInputDirectory);
    return migrated;
}

} // namespace ostrel
