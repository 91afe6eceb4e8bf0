#pragma once

#include "base/Error.h"
#include "update/Signatures.h"
#include "update/Version.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

namespace ostrel {

/// One version for one kind of machine, as the feed announces it.
struct Release {
    Version version;
    QString platform;     ///< as in "linux-x86_64"
    QUrl url;             ///< of the archive, absolute
    qint64 size = 0;      ///< of the archive, in bytes
    QByteArray sha256;    ///< of the archive, in lower-case hexadecimal digits
    QByteArray signature; ///< of `signedArchiveMessage`
    QString notes;        ///< what is new, one line; may be empty
};

/// A list of versions that its makers have signed.
struct Feed {
    qint64 sequence = 0;  ///< grows with each feed that is signed
    qint64 expiresMs = 0; ///< milliseconds since 1970
    QList<Release> releases;
};

/// The longest feed that is read, in bytes.
constexpr qint64 longestFeed = qint64(1024) * 1024;
/// The longest archive that is downloaded, in bytes.
constexpr qint64 longestArchive = qint64(512) * 1024 * 1024;

/// Reads a feed: a line "ostrel-feed 1 SIGNATURE", then the JSON document that is signed. The document is not looked at
/// before its signature was found right. docs/updates.md has the format. Any thread.
/// @param address where it came from; relative addresses of archives count from there
/// @return the feed, or FeedUnsigned, FeedSignatureWrong or FeedNotUnderstood
Result<Feed> readFeed(const QByteArray &bytes, const UpdateKey &key, const QUrl &address);

/// The newest release for a kind of machine that is newer than a version.
std::optional<Release> newestRelease(const Feed &feed, const QString &platform, const Version &than);

/// What releases for this machine are called.
QString thisPlatform();

} // namespace ostrel
