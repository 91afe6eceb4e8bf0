#pragma once

#include "base/Error.h"
#include "observer/Base64Text.h"

#include <QByteArray>
#include <QString>
#include <optional>

namespace ostrel {

/// The records of the loopback API. Decoding is strict: a missing required key or a wrong type fails, an unknown key
/// is ignored, null counts as absent where a key is optional. Encoding is compact, in declaration order, without the
/// keys of absent values.

struct ObserverStatus {
    bool running = false;
    std::optional<QString> sessionId;
    qint64 chunkIndex = 0;
    std::optional<QString> lastAction;
    std::optional<QString> lastError;
    std::optional<QString> lastChunkAt;
    std::optional<qint64> pendingAnalysisChunks;
    std::optional<bool> analysisBackfillActive;
    std::optional<bool> analysisBackfillBlocked;
    std::optional<QString> analysisBackfillLastError;

    bool operator==(const ObserverStatus &) const = default;
    static Result<ObserverStatus> fromJson(const QByteArray &json);
    QByteArray toJson() const;
};

/// One accepted frame on its way to the observer.
struct CapturedFramePayload {
    qint64 receivedAtMs = 0; ///< wall-clock milliseconds since 1970
    qint64 frameIndex = 0;   ///< 0, 1, 2, ... across all displays since the recorder's start
    Base64Text videoBase64;  ///< the JPEG, on the wire in standard base64 without line breaks
    QString videoMimeType;
    std::optional<QString> text;
    QString displayId;
    QString displayLabel;
    qint64 displayWidth = 0;
    qint64 displayHeight = 0;
    std::optional<QString> activeDisplayId;
    std::optional<QString> activeDisplayLabel;
    std::optional<QString> activeDisplayReason;

    bool operator==(const CapturedFramePayload &) const = default;
    static Result<CapturedFramePayload> fromJson(const QByteArray &json);
    QByteArray toJson() const;

    /// The JSON but for the picture: base64 of `videoBase64.bytes()` belongs between the two parts.
    struct JsonAroundPicture {
        QByteArray before;
        QByteArray after;
    };
    JsonAroundPicture toJsonAroundPicture() const;
};

struct ArchiveStatus {
    bool archiveEnabled = false;
    QString archiveVaultId;
    bool hasRecoveryKey = false;
    std::optional<QString> recoveryKey;

    bool operator==(const ArchiveStatus &) const = default;
    static Result<ArchiveStatus> fromJson(const QByteArray &json);
    QByteArray toJson() const;
};

struct ArchiveExportStatus {
    QString state; ///< "idle", "running", "done", "failed" or "cancelled"
    qint64 exported = 0;
    qint64 total = 0;
    qint64 skipped = 0;
    std::optional<QString> currentDay;
    std::optional<QString> error;

    bool operator==(const ArchiveExportStatus &) const = default;
    static Result<ArchiveExportStatus> fromJson(const QByteArray &json);
    QByteArray toJson() const;
};

struct ArchiveExportEstimate {
    qint64 clips = 0;
    qint64 bytes = 0;

    bool operator==(const ArchiveExportEstimate &) const = default;
    static Result<ArchiveExportEstimate> fromJson(const QByteArray &json);
    QByteArray toJson() const;
};

/// What the observer has removed of a time that the user wants forgotten.
struct ForgetReport {
    qint64 frames = 0;           ///< that waited to be analysed, or were put aside
    qint64 rawInputs = 0;        ///< chunks of which a model's inputs were kept
    qint64 rawInputsUnknown = 0; ///< such chunks of which nobody knows when they were; they were left
    qint64 journalLines = 0;
    qint64 archiveClips = 0;  ///< whole ones, which may begin earlier and end later
    qint64 archiveFrames = 0; ///< that were not in clips yet
    /// Which folders could not be looked into, and what to do about them.
    std::optional<QString> notSearched;
    /// Why the archive still has some of that time; the observer tries again by itself.
    std::optional<QString> archiveWaits;

    bool operator==(const ForgetReport &) const = default;
    static Result<ForgetReport> fromJson(const QByteArray &json);
    QByteArray toJson() const;
};

} // namespace ostrel
