#include "base/Files.h"

#include "base/Fault.h"
#include "base/Paths.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <optional>
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

struct Descriptor {
    const int number;
    ~Descriptor()
    {
        if (number >= 0)
            ::close(number);
    }
};

/// Why something is no file of bytes; nothing where it is one. A pipe or a device would never end, or be destroyed.
std::optional<Error> irregularity(const struct stat &info, const QString &path)
{
    if (S_ISDIR(info.st_mode))
        return faultError(Fault::IsDirectory, path);
    if (!S_ISREG(info.st_mode))
        return faultError(Fault::FileFailed, QStringLiteral("%1 (it is no regular file)").arg(path));
    return std::nullopt;
}

} // namespace

Result<QByteArray> readFile(const QString &path)
{
    // Without O_NONBLOCK a pipe would wait for its writer here, for ever.
    const Descriptor file{
        .number = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)};
    struct stat info{};
    if (file.number < 0 || ::fstat(file.number, &info) != 0)
        return std::unexpected(fileError(errno, path));
    if (const auto error = irregularity(info, path))
        return std::unexpected(*error);
    // The size may be untrue: what the kernel makes up as it is read says 0.
    QByteArray bytes;
    bytes.reserve(std::min(qsizetype(info.st_size), longestFile));
    while (bytes.size() <= longestFile) {
        std::array<char, 65'536> piece{};
        const ssize_t length = ::read(file.number, piece.data(), piece.size());
        if (length < 0 && errno == EINTR)
            continue;
        if (length < 0)
            return std::unexpected(fileError(errno, path));
        if (length == 0)
            return bytes;
        bytes.append(piece.data(), length);
    }
    return std::unexpected(
        faultError(Fault::FileFailed, QStringLiteral("%1 (it is longer than %2 bytes)").arg(path).arg(longestFile)));
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
    struct stat before{};
    if (::stat(QFile::encodeName(path).constData(), &before) == 0) {
        if (const auto error = irregularity(before, path))
            return std::unexpected(*error);
    }

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

Result<> writeNewFile(const QString &path, const QByteArray &bytes)
{
    const QByteArray name = QFile::encodeName(path);
    const int descriptor = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0)
        return std::unexpected(fileError(errno, path));
    const bool complete = writeAll(descriptor, bytes);
    const int failure = errno;
    ::close(descriptor);
    if (!complete) {
        ::unlink(name.constData());
        return std::unexpected(fileError(failure, path));
    }
    syncDirectory(QFile::encodeName(QFileInfo(path).absolutePath()));
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
