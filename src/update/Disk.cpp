#include "update/Disk.h"

#include "base/Fault.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {

namespace {

Result<> outcomeOf(int returned, const QString &path)
{
    if (returned == 0)
        return {};
    return std::unexpected(fileError(errno, path));
}

QByteArray native(const QString &path)
{
    return QFile::encodeName(path);
}

} // namespace

Result<> SystemDisk::makeFolder(const QString &path)
{
    return outcomeOf(::mkdir(native(path).constData(), 0700), path);
}

Result<> SystemDisk::openFolder(const QString &path)
{
    return outcomeOf(::chmod(native(path).constData(), 0755), path);
}

Result<> SystemDisk::makeLink(const QString &target, const QString &path)
{
    return outcomeOf(::symlink(native(target).constData(), native(path).constData()), path);
}

Result<> SystemDisk::rename(const QString &from, const QString &to)
{
    return outcomeOf(::rename(native(from).constData(), native(to).constData()), to);
}

Result<> SystemDisk::syncFolder(const QString &path)
{
    const int folder = ::open(native(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return std::unexpected(fileError(errno, path));
    auto outcome = outcomeOf(::fsync(folder), path);
    ::close(folder);
    return outcome;
}

Result<> SystemDisk::remove(const QString &path)
{
    const QFileInfo info(path);
    errno = 0;
    if (info.isDir() && !info.isSymLink()) {
        if (QDir(path).removeRecursively())
            return {};
        return std::unexpected(fileError(errno != 0 ? errno : EACCES, path));
    }
    if (::unlink(native(path).constData()) != 0 && errno != ENOENT)
        return std::unexpected(fileError(errno, path));
    return {};
}

} // namespace ostrel
