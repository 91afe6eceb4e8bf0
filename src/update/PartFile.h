#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QString>

namespace ostrel {

/// A download on the disk that may not be complete, and the mark by which its server knows what it was of. Its jobs run
/// on a worker; each blocks on the disk.
class PartFile
{
public:
    /// @param path of the file; the mark lies beside it
    explicit PartFile(const QString &path) : m_path(path) {}

    QString path() const { return m_path; }
    /// How many bytes are there.
    qint64 size() const;
    /// The entity tag that the server gave to what is there; empty when it gave none that can be relied on.
    QByteArray entityTag() const;

    /// Begins anew.
    Result<> reset(const QByteArray &entityTag) const;
    Result<> append(const QByteArray &bytes) const;
    Result<> remove() const;
    /// Removes what was left of other downloads in the same folder.
    Result<> removeOthers() const;

private:
    QString tagPath() const { return m_path + QLatin1String(".etag"); }

    QString m_path;
};

} // namespace ostrel
