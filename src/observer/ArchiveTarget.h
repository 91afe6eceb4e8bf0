#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QString>

namespace ostrel {

/// Where the archive of the footage lies, as `/api/archive/target` tells and takes it. One record for all kinds: the
/// fields of the others stay as they are while one is being chosen, and are neither sent nor compared.
struct ArchiveTarget {
    enum class Kind { None, Folder, S3, Rclone };

    /// What the observer tells in a secret's stead. Given back, it leaves the one that is kept alone.
    static const QString redacted;

    Kind kind = Kind::None;
    bool lossless = false; ///< pictures bit for bit; else as video, which is much smaller

    QString path; ///< of a folder: absolute, or beginning with "~/"

    // Of a bucket.
    QString endpoint; ///< "https://<host>"
    QString region = QStringLiteral("us-east-1");
    QString bucket;
    QString prefix;         ///< a folder in the bucket; empty for all of it
    bool pathStyle = false; ///< the bucket's name stands in the path, not in the host's name
    QString accessKeyId;
    QString secretAccessKey;

    QString remote; ///< of rclone: "<remote>:<path>" of the user's own configuration

    bool operator==(const ArchiveTarget &) const = default;
    /// @return Fault::UndecodableAnswer for anything else, a kind that is not known among it
    static Result<ArchiveTarget> fromJson(const QByteArray &json);
    QByteArray toJson() const;
};

/// "none", "folder", "s3" or "rclone".
QString archiveTargetKindName(ArchiveTarget::Kind kind);

/// Whether both mean the same place, whoever is let in there.
bool isSamePlace(const ArchiveTarget &one, const ArchiveTarget &other);

/// The place in words for people, as in "/mnt/nas/footage" or "bucket footage at s3.example.org"; empty for none.
QString archivePlaceText(const ArchiveTarget &target);

} // namespace ostrel
