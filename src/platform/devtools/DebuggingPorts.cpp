#include "platform/devtools/DebuggingPorts.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <array>

#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {

namespace {

/// Beyond it a command line is cut; that of a browser takes a few kilobytes.
constexpr qint64 longestCommandLine = 262144;

/// The value of the last "--name=value"; null where there is none.
QString lastValue(const QStringList &commandLine, QLatin1StringView name)
{
    const QString start = QLatin1String("--") + name + u'=';
    QString value;
    for (const QString &word : commandLine) {
        if (word == QLatin1String("--"))
            break;
        if (word.startsWith(start))
            value = word.sliced(start.size());
    }
    return value;
}

/// The number in a descriptor's link "socket:[number]"; nothing for everything else.
std::optional<quint64> socketBehind(const QString &descriptor)
{
    // Not Qt's own reading of links, which makes a path of what is none.
    std::array<char, 64> target{};
    const ssize_t length = ::readlink(QFile::encodeName(descriptor).constData(), target.data(), target.size());
    const QByteArrayView link(target.data(), std::max<ssize_t>(length, 0));
    if (!link.startsWith("socket:[") || !link.endsWith(']'))
        return std::nullopt;
    bool isNumber = false;
    const quint64 number = link.sliced(8).chopped(1).toULongLong(&isNumber);
    return isNumber ? std::optional(number) : std::nullopt;
}

} // namespace

std::optional<DebuggingSwitches> debuggingSwitches(const QStringList &commandLine)
{
    // The browser's own helpers inherit its switches.
    if (!lastValue(commandLine, QLatin1StringView("type")).isNull())
        return std::nullopt;
    bool isPort = false;
    const quint16 port = lastValue(commandLine, QLatin1StringView("remote-debugging-port")).toUShort(&isPort);
    if (!isPort)
        return std::nullopt;
    return DebuggingSwitches{.port = port, .userDataDir = lastValue(commandLine, QLatin1StringView("user-data-dir"))};
}

std::optional<quint16> DebuggingPorts::portOf(qint32 process, const QStringList &usualFolders) const
{
    const auto switches = debuggingSwitches(commandLine(process));
    if (!switches)
        return std::nullopt;
    if (switches->port != 0)
        return listensOn(process, switches->port) ? std::optional(switches->port) : std::nullopt;
    const bool isUsual = switches->userDataDir.isEmpty();
    for (const QString &folder : isUsual ? usualFolders : QStringList(switches->userDataDir)) {
        const auto port = notedPort(folder);
        if (port && listensOn(process, *port))
            return port;
    }
    return std::nullopt;
}

bool DebuggingPorts::listensOn(qint32 process, quint16 port) const
{
    return holdsOneOf(process, m_around.sockets(port));
}

QList<DebuggedBrowser> DebuggingPorts::all() const
{
    const QStringList folders = allProfileFolders(m_around.folders);
    QList<DebuggedBrowser> browsers;
    for (const QString &name : QDir(m_around.proc).entryList({QStringLiteral("[1-9]*")}, QDir::Dirs)) {
        const qint32 process = name.toInt();
        if (const auto port = portOf(process, folders))
            browsers.append({.process = process, .port = *port});
    }
    return browsers;
}

QString DebuggingPorts::processFolder(qint32 process) const
{
    return m_around.proc + u'/' + QString::number(process);
}

QStringList DebuggingPorts::commandLine(qint32 process) const
{
    struct stat info{};
    const QString folder = processFolder(process);
    QFile file(folder + QLatin1String("/cmdline"));
    if (process <= 0 || ::stat(QFile::encodeName(folder).constData(), &info) != 0 || info.st_uid != m_around.user ||
        !file.open(QIODevice::ReadOnly))
        return {};
    const QStringList words = QString::fromLocal8Bit(file.read(longestCommandLine)).split(QChar(0), Qt::SkipEmptyParts);
    // Where its surroundings let it, Chromium writes its command line anew, as one text. A folder with a blank in its
    // name can't be told from two words then, and is not found.
    return words.size() == 1 ? words.first().split(u' ', Qt::SkipEmptyParts) : words;
}

bool DebuggingPorts::holdsOneOf(qint32 process, const QList<quint64> &sockets) const
{
    if (sockets.isEmpty())
        return false;
    const QDir descriptors(processFolder(process) + QLatin1String("/fd"));
    const QStringList names = descriptors.entryList(QDir::System | QDir::Files | QDir::NoDotAndDotDot);
    return std::ranges::any_of(names, [&](const QString &name) {
        const auto socket = socketBehind(descriptors.filePath(name));
        return socket && sockets.contains(*socket);
    });
}

} // namespace ostrel
