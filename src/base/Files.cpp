#include "base/Files.h"

#include "base/Fault.h"
#include "base/Paths.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {

namespace {

/// Writes all bytes to a descriptor and flushes them to the disk.
bool writeAll(int descriptor, const QByteArray &bytes)
{
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(descriptor, bytes.constData() + written, size_t(bytes.size() - written));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        written += n;
    }
    return ::fsync(descriptor) == 0;
}

/// A rename is on the disk only when its folder is. A file system that can't flush a folder is left alone.
void syncDirectory(const QByteArray &directory)
{
    const int descriptor = ::open(directory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    ::fsync(descriptor);
    ::close(descriptor);
}

/// Where a symbolic link leads: users keep settings in a versioned folder and link to them, and a rename over
/// the link would cut that tie.
QString behindLink(const QString &path)
{
    const QFileInfo info(path);
    return info.isSymLink() ? info.symLinkTarget() : path;
}

} // namespace

Result<QByteArray> readFile(const QString &path)
{
    if (QFileInfo(path).isDir())
        return std::unexpected(faultError(Fault::IsDirectory, path));
    QFile file(path);
    errno = 0;
    if (!file.open(QIODevice::ReadOnly))
        return std::unexpected(fileError(errno != 0 ? errno : EIO, path));
    errno = 0;
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::unexpected(fileError(errno != 0 ? errno : EIO, path));
    return bytes;
}

Result<> writeFileAtomically(const QString &linkOrPath, const QByteArray &bytes)
{
    // QSaveFile would do, but it keeps no errno for the message and never flushes to the disk before its rename,
    // so a power cut could leave an empty file under the final name.
    const QString path = behindLink(linkOrPath);
    const QString directory = QFileInfo(path).absolutePath();
    errno = 0;
    if (!makePrivateDirectory(directory))
        return std::unexpected(fileError(errno != 0 ? errno : EACCES, directory));
    if (QFileInfo(path).isDir())
        return std::unexpected(faultError(Fault::IsDirectory, path));

    QByteArray temporary = QFile::encodeName(path) + ".XXXXXX";
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC); // made with mode 0600
    if (descriptor < 0)
        return std::unexpected(fileError(errno, path));
    const bool complete = writeAll(descriptor, bytes);
    const int writeError = errno;
    ::close(descriptor);
    if (!complete || std::rename(temporary.constData(), QFile::encodeName(path).constData()) != 0) {
        const int failure = complete ? errno : writeError;
        ::unlink(temporary.constData());
        return std::unexpected(fileError(failure, path));
    }
    syncDirectory(QFile::encodeName(directory));
    return {};
}

Result<QString> keepDamagedFile(const QString &path)
{
    const QByteArray from = QFile::encodeName(path);
    for (int number = 1;; ++number) {
        QString kept = path + QLatin1String(".damaged") + (number > 1 ? QString::number(number) : QString());
        const QByteArray to = QFile::encodeName(kept);
        // A link, so that the file never lacks its own name; file systems without links can only rename.
        if (::link(from.constData(), to.constData()) == 0)
            return kept;
        if (errno == EPERM || errno == ENOTSUP) {
            if (!QFileInfo::exists(kept) && std::rename(from.constData(), to.constData()) == 0)
                return kept;
        }
        if (errno != EEXIST && !QFileInfo::exists(kept))
            return std::unexpected(fileError(errno, path));
    }
}

bool isExecutableFile(const QString &path)
{
    return QFileInfo(path).isFile() && ::access(QFile::encodeName(path).constData(), X_OK) == 0;
}

} // namespace ostrel
