#include "observer/PortHolder.h"

#include "observer/PortOwner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <pwd.h>
#include <unistd.h>

namespace ostrel {

namespace {

QString nameOfUser(uid_t user)
{
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd *found = nullptr;
    if (::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == 0 && found)
        return QString::fromLocal8Bit(found->pw_name);
    return QString::number(user);
}

bool hasOpen(const QDir &process, const QString &socket)
{
    const QDir descriptors(process.filePath(QStringLiteral("fd")));
    const QStringList names = descriptors.entryList(QDir::System | QDir::Files | QDir::NoDotAndDotDot);
    return std::ranges::any_of(names, [&](const QString &name) {
        // Not Qt's own reading of links, which makes a path of what is none.
        std::array<char, 64> target{};
        const QByteArray link = QFile::encodeName(descriptors.filePath(name));
        const ssize_t length = ::readlink(link.constData(), target.data(), target.size());
        return length > 0 && QByteArrayView(target.data(), length) == socket.toLatin1();
    });
}

QStringList readCommandLine(const QDir &process)
{
    QFile file(process.filePath(QStringLiteral("cmdline")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList words = QString::fromLocal8Bit(file.readAll()).split(QChar(0));
    if (words.last().isEmpty())
        words.removeLast();
    return words;
}

} // namespace

QString PortHolder::program() const
{
    return QFileInfo(commandLine.value(0)).fileName();
}

bool PortHolder::isObserver() const
{
    return std::ranges::any_of(commandLine, [](const QString &word) {
        return word.endsWith(QLatin1String("dist/observer.mjs")) ||
               word.endsWith(QLatin1String("apps/mac-observer/src/index.ts"));
    });
}

Result<std::optional<PortHolder>> portHolder(quint16 port, const QString &proc)
{
    const auto sockets = listeningSockets(port, proc + QLatin1String("/net"));
    if (!sockets)
        return std::unexpected(sockets.error());
    if (sockets->isEmpty())
        return std::nullopt;
    const ListeningSocket &socket = sockets->first();
    PortHolder holder{.user = socket.user, .userName = nameOfUser(socket.user), .processId = {}, .commandLine = {}};
    const QString link = QStringLiteral("socket:[%1]").arg(socket.inode);
    for (const QString &name : QDir(proc).entryList({QStringLiteral("[1-9]*")}, QDir::Dirs)) {
        const QDir process(proc + u'/' + name);
        if (!hasOpen(process, link))
            continue;
        holder.processId = name.toLongLong();
        holder.commandLine = readCommandLine(process);
        break;
    }
    return holder;
}

} // namespace ostrel
