#include "update/PartFile.h"

#include "base/Fault.h"
#include "base/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <unistd.h>

namespace ostrel {

qint64 PartFile::size() const
{
    return QFileInfo(m_path).size();
}

QByteArray PartFile::entityTag() const
{
    return readFile(tagPath()).value_or(QByteArray());
}

Result<> PartFile::reset(const QByteArray &entityTag) const
{
    if (const auto emptied = writeFileAtomically(m_path, {}); !emptied)
        return emptied;
    return writeFileAtomically(tagPath(), entityTag);
}

Result<> PartFile::append(const QByteArray &bytes) const
{
    QFile file(m_path);
    errno = 0;
    // Unbuffered, so that the error is told by the call that it belongs to.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered) ||
        file.write(bytes) != bytes.size())
        return std::unexpected(fileError(errno != 0 ? errno : EIO, m_path));
    return {};
}

Result<> PartFile::remove() const
{
    for (const QString &path : {m_path, tagPath()}) {
        if (::unlink(QFile::encodeName(path).constData()) != 0 && errno != ENOENT)
            return std::unexpected(fileError(errno, path));
    }
    return {};
}

Result<> PartFile::removeOthers() const
{
    const QFileInfo own(m_path);
    for (const QFileInfo &other : own.dir().entryInfoList(QDir::Files | QDir::Hidden)) {
        if (other.fileName().startsWith(own.fileName()))
            continue;
        if (const auto removed = PartFile(other.filePath()).remove(); !removed)
            return removed;
    }
    return {};
}

} // namespace ostrel
