#include "observer/RepoLocator.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace ostrel {

namespace {

bool isFile(const QString &path)
{
    return QFileInfo(path).isFile();
}

/// The first observer root at or above a starting point.
std::optional<QString> searchUpwards(const QString &start)
{
    QString folder = QFileInfo(start).isDir() ? start : QFileInfo(start).path();
    while (!RepoLocator::isObserverRoot(folder)) {
        if (folder == QLatin1String("/"))
            return std::nullopt;
        folder = QFileInfo(folder).path();
    }
    return folder;
}

} // namespace

RepoLocator RepoLocator::forThisProgram()
{
    const QDir binaries(QCoreApplication::applicationDirPath());
    const QString prefix = QFileInfo(binaries.path()).path();
    const QString resources = prefix + QLatin1String("/share/ostrel");
    return {
        .environmentOverride = qEnvironmentVariable("MORAVEL_REPO_ROOT"),
        .resourcesDirectory = QFileInfo(resources).isDir() ? resources : QString(),
        .currentDirectory = QDir::currentPath(),
        .bundleLocation = prefix,
        .programPath = QCoreApplication::arguments().value(0),
    };
}

std::optional<QString> RepoLocator::resolveRepoRoot() const
{
    // The last paths may be relative, as the user or the shell wrote them.
    const QDir current(currentDirectory);
    const auto absolute = [&current](const QString &path) { return QDir::cleanPath(current.absoluteFilePath(path)); };

    if (!environmentOverride.isEmpty())
        return absolute(environmentOverride);
    if (!resourcesDirectory.isEmpty()) {
        QString bundled = absolute(resourcesDirectory + QLatin1String("/Observer"));
        if (isObserverRoot(bundled))
            return bundled;
    }
    for (const QString &start : {currentDirectory, bundleLocation, programPath}) {
        if (start.isEmpty())
            continue;
        if (auto found = searchUpwards(absolute(start)))
            return found;
    }
    return std::nullopt;
}

bool RepoLocator::isObserverRoot(const QString &folder)
{
    const auto holds = [&folder](const char *file) { return isFile(folder + u'/' + QLatin1String(file)); };
    return holds("dist/observer.mjs") || (holds("package.json") && holds("apps/mac-observer/src/index.ts"));
}

} // namespace ostrel
