#include "base/Paths.h"

#include <QDir>
#include <QFile>

#include <cerrno>

#include <sys/stat.h>

namespace ostrel {

QString homeDirectory()
{
    return QDir::homePath();
}

QString expandedPath(const QString &path)
{
    if (path == QLatin1String("~"))
        return homeDirectory();
    if (path.startsWith(QLatin1String("~/")))
        return homeDirectory() + QLatin1Char('/') + path.mid(2);
    return path;
}

QString abbreviatedPath(const QString &path)
{
    const QString home = homeDirectory();
    // Where the home folder is "/", "~" would say less than the path.
    if (home.size() <= 1)
        return path;
    if (path == home)
        return QStringLiteral("~");
    return path.startsWith(home + QLatin1Char('/')) ? QLatin1Char('~') + path.mid(home.size()) : path;
}

QString stateDirectory()
{
    return homeDirectory() + QLatin1String("/.ostrel");
}

bool makePrivateDirectory(const QString &path)
{
    const QString clean = QDir::cleanPath(path);
    if (QDir(clean).exists())
        return true;
    const qsizetype slash = clean.lastIndexOf(QLatin1Char('/'));
    if (slash > 0 && !makePrivateDirectory(clean.left(slash)))
        return false;
    // mkdir with the mode at once: between a mkdir and a chmod somebody else could look in.
    ::mkdir(QFile::encodeName(clean).constData(), S_IRWXU);
    const int failure = errno;
    const bool exists = QDir(clean).exists();
    errno = failure; // looking has its own
    return exists;
}

} // namespace ostrel
