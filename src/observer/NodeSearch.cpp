#include "observer/NodeSearch.h"

#include "base/Files.h"

#include <QStringList>

namespace ostrel::NodeSearch {

QString path(const QProcessEnvironment &environment)
{
    const QString own = environment.value(QStringLiteral("PATH"));
    return (own.isEmpty() ? QStringLiteral("/usr/bin:/bin") : own) + QLatin1String(":/opt/homebrew/bin:/usr/local/bin");
}

std::optional<QString> privateNode(const QDir &root)
{
    const QString file = root.filePath(QStringLiteral("bin/node"));
    return isExecutableFile(file) ? std::optional(file) : std::nullopt;
}

std::optional<QString> find(const QDir &root, const QProcessEnvironment &environment)
{
    if (auto node = privateNode(root))
        return node;
    for (const QString &entry : path(environment).split(u':')) {
        // An empty entry is the working folder.
        QString file = QDir(root.absoluteFilePath(entry)).filePath(QStringLiteral("node"));
        if (isExecutableFile(file))
            return file;
    }
    return std::nullopt;
}

} // namespace ostrel::NodeSearch
