#include "update/RunningVersions.h"

#include "base/Text.h"

#include <QDir>
#include <QFile>

#include <array>
#include <climits>
#include <unistd.h>

namespace ostrel {

namespace {

/// The file that a process runs; empty where that can't be seen.
QString programOf(const QString &process)
{
    std::array<char, PATH_MAX> target{};
    const auto length =
        ::readlink(QFile::encodeName(process + QLatin1String("/exe")).constData(), target.data(), target.size());
    return QString::fromLocal8Bit(target.data(), std::max<qsizetype>(length, 0));
}

} // namespace

QStringList runningVersions(const QString &versions, const QString &proc)
{
    const QString start = versions + QLatin1Char('/');
    QStringList running;
    for (const QString &name : QDir(proc).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (!parseInteger(name))
            continue;
        const QString program = programOf(proc + QLatin1Char('/') + name);
        if (program.startsWith(start))
            running.append(program.mid(start.size()).section(QLatin1Char('/'), 0, 0));
    }
    running.removeDuplicates();
    return running;
}

} // namespace ostrel
