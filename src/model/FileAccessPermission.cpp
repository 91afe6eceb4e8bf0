#include "model/FileAccessPermission.h"

#include "base/Paths.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ostrel::FileAccessPermission {

bool canWrite(const QString &outputDirectory)
{
    if (outputDirectory.isEmpty())
        return false;
    const QString folder = expandedPath(outputDirectory);
    if (!makePrivateDirectory(folder))
        return false;
    const QByteArray probe = QFile::encodeName(QDir(folder).filePath(QStringLiteral(".ostrel-write-probe")));
    // In a folder that others can write to, a link or a pipe of this name must neither empty the user's file that it
    // points to nor keep us waiting for a reader.
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const int file = ::open(probe.constData(), flags, S_IRUSR | S_IWUSR);
    if (file < 0)
        return false;
    ::close(file);
    // Another ostrel that probes at the same moment may have removed it for us.
    return ::unlink(probe.constData()) == 0 || errno == ENOENT;
}

} // namespace ostrel::FileAccessPermission
