#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

namespace ostrel {

/// The one settings record, shared with the observer by file and by wire. Nothing is range-checked here: whoever edits
/// a value checks it. Fields stand in the order of encoding; JSON keys are the field names.
struct ObserverSettings {
    QString inferenceProvider;
    QString analysisServerUrl;
    QString analysisApiToken; ///< secret; never in the settings file
    QString byokGoogleVertexAuthMode;
    QString byokGoogleVertexProjectId;
    QString byokGoogleVertexLocation;
    QString byokGoogleVertexApiKey; ///< secret; never in the settings file
    QString byokGoogleVertexServiceAccountPath;
    QString outputDirectory;   ///< may begin with "~"
    QString rawInputDirectory; ///< may begin with "~"
    QString instructions;
    qint64 chunkSizeMs = 0;
    qint64 chunkOverlapMs = 0;
    double frameFps = 0;
    QString mediaResolution;
    QString model;
    QString thinkingLevel;
    qint64 maxOutputTokens = 0;
    qint64 journalTailSize = 0;
    bool saveRawInputs = false;
    bool archiveEnabled = false;
    QString archiveVaultId;
    qint64 localPort = 0;

    bool operator==(const ObserverSettings &) const = default;

    /// The record of defaults. A default-constructed record is an empty one, not this.
    static ObserverSettings defaults();

    /// Every key is optional; a missing or null one takes its default; a value of the wrong type fails the whole.
    static Result<ObserverSettings> fromJson(const QByteArray &json);
    /// All keys in declaration order, compact.
    QByteArray toJson() const;
    /// All keys sorted, indented: the settings file's form.
    QByteArray toPrettyJson() const;

    /// "http://127.0.0.1:" and the port: the base of every call to the observer.
    QUrl localhostBaseURL() const;
    /// `analysisServerUrl`, or http://127.0.0.1:8899 where that is not a URL.
    QUrl serverBaseURL() const;

    /// The same with the default folders of earlier versions replaced by today's.
    ObserverSettings migratingLegacyDefaultDirectories() const;
};

} // namespace ostrel
