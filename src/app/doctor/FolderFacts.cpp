#include "app/doctor/FolderFacts.h"

#include "base/Paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace ostrel {

namespace {

/// The folder where the first thing would have to be made.
QString nearestExisting(const QString &path)
{
    QString folder = path;
    while (!QFileInfo::exists(folder) && folder != QLatin1String("/"))
        folder = QFileInfo(folder).path();
    return folder;
}

/// Tries by a file without a name, which nobody ever sees and which ends with its descriptor.
void tryToWrite(FolderFacts &facts)
{
    const QByteArray folder = QFile::encodeName(facts.tried);
    const int file = ::open(folder.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file >= 0) {
        ::close(file);
        facts.writability = Writability::Tried;
        return;
    }
    facts.errorNumber = errno;
    // Some file systems have no files without names, and old kernels take the flag for a plain attempt on the folder.
    if (facts.errorNumber != EOPNOTSUPP && facts.errorNumber != EISDIR)
        return;
    if (::access(folder.constData(), W_OK | X_OK) == 0)
        facts.writability = Writability::Permitted;
    else
        facts.errorNumber = errno;
}

} // namespace

FolderFacts readFolderFacts(const QString &path)
{
    FolderFacts facts;
    if (path.isEmpty())
        return facts;
    facts.path = QDir::cleanPath(QDir::current().absoluteFilePath(expandedPath(path)));
    facts.exists = QFileInfo(facts.path).isDir();
    facts.tried = nearestExisting(facts.path);
    const QByteArray tried = QFile::encodeName(facts.tried);
    struct stat info{};
    struct statvfs volume{};
    if (::stat(tried.constData(), &info) != 0 || ::statvfs(tried.constData(), &volume) != 0) {
        facts.errorNumber = errno;
        return facts;
    }
    facts.isOurs = info.st_uid == ::geteuid();
    facts.freeBytes = qint64(volume.f_bavail) * qint64(volume.f_frsize);
    if (!S_ISDIR(info.st_mode))
        facts.errorNumber = ENOTDIR;
    else if (volume.f_blocks == 0)
        facts.errorNumber = EROFS; // a view into the kernel: it takes no files, whatever its permissions say
    else
        tryToWrite(facts);
    return facts;
}

} // namespace ostrel
