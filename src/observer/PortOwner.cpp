#include "observer/PortOwner.h"

#include "base/Fault.h"
#include "observer/SocketDiagnosis.h"

#include <QByteArrayView>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <optional>
#include <string>
#include <utility>

#include <arpa/inet.h>

namespace ostrel {

namespace {

/// A 32-bit word of an address, as the kernel prints it: in the byte order of the machine.
QByteArray printedWord(quint32 hostOrder)
{
    return QByteArray::number(htonl(hostOrder), 16).toUpper().rightJustified(8, '0');
}

struct Table {
    const char *name;
    QByteArray loopback; ///< 127.0.0.1 in this table's print
    QByteArray anywhere;
};

QList<Table> tables()
{
    const QByteArray zero = printedWord(0);
    const QByteArray loopback = printedWord(INADDR_LOOPBACK);
    // A socket of IPv6 may be bound to the mapped address, and one bound to "::" mostly serves IPv4 as well.
    return {{"tcp", loopback, zero}, {"tcp6", zero + zero + printedWord(0xffff) + loopback, zero + zero + zero + zero}};
}

/// One line is "sl: address:port remote:port state tx:rx tr:when retransmits uid timeout inode ...".
std::optional<ListeningSocket> socketOf(const QByteArray &line, const Table &table, const QByteArray &portSuffix)
{
    const QList<QByteArray> columns = line.simplified().split(' ');
    constexpr qsizetype addressColumn = 1, stateColumn = 3, userColumn = 7, inodeColumn = 9;
    if (columns.size() <= inodeColumn || columns[stateColumn] != "0A" || !columns[addressColumn].endsWith(portSuffix))
        return std::nullopt;
    const QByteArray address = columns[addressColumn].chopped(portSuffix.size());
    if (address != table.loopback && address != table.anywhere)
        return std::nullopt;
    return ListeningSocket{.user = uid_t(columns[userColumn].toULongLong()),
                           .inode = columns[inodeColumn].toULongLong(),
                           .isExact = address == table.loopback};
}

/// The kernel prefers the exact address.
QList<ListeningSocket> preferred(QList<ListeningSocket> sockets)
{
    if (std::ranges::any_of(sockets, &ListeningSocket::isExact))
        sockets.removeIf([](const ListeningSocket &socket) { return !socket.isExact; });
    return sockets;
}

PortOwner ownerAmong(const QList<ListeningSocket> &candidates, uid_t ourUser)
{
    if (candidates.isEmpty())
        return PortOwner::Nobody;
    // Should several sockets share one rank, any stranger is one too many.
    const bool foreign = std::ranges::any_of(candidates, [&](const auto &socket) { return socket.user != ourUser; });
    return foreign ? PortOwner::AnotherUser : PortOwner::OurUser;
}

/// Asked in the quickest way that the kernel offers.
Result<QList<ListeningSocket>> answeringSockets(quint16 port)
{
    if (const auto sockets = diagnosedSockets(port))
        return preferred(*sockets);
    return listeningSockets(port);
}

} // namespace

Result<QList<ListeningSocket>> listeningSockets(quint16 port, const QString &procNet)
{
    const QByteArray portSuffix = ':' + QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
    QList<ListeningSocket> sockets;
    bool foundExact = false;
    for (const Table &table : tables()) {
        const QString path = procNet + u'/' + QLatin1String(table.name);
        errno = 0;
        std::ifstream file(QFile::encodeName(path).toStdString());
        if (!file && table.name == QByteArrayView("tcp"))
            return std::unexpected(fileError(errno != 0 ? errno : EIO, path));
        // Once the exact address is found nothing can change the verdict: reading on would cost a busy machine time.
        for (std::string line; !foundExact && std::getline(file, line);) {
            if (line.find(portSuffix.constData()) == std::string::npos)
                continue;
            if (const auto socket = socketOf(QByteArray::fromStdString(line), table, portSuffix)) {
                foundExact = socket->isExact;
                sockets.append(*socket);
            }
        }
    }
    return preferred(std::move(sockets));
}

Result<PortOwner> portOwnerInTables(quint16 port, uid_t ourUser, const QString &procNet)
{
    const auto sockets = listeningSockets(port, procNet);
    if (!sockets)
        return std::unexpected(sockets.error());
    return ownerAmong(*sockets, ourUser);
}

Result<PortOwner> portOwner(quint16 port, uid_t ourUser)
{
    const auto sockets = answeringSockets(port);
    if (!sockets)
        return std::unexpected(sockets.error());
    return ownerAmong(*sockets, ourUser);
}

QList<quint64> ownSockets(quint16 port, uid_t ourUser)
{
    const auto sockets = answeringSockets(port);
    if (!sockets || ownerAmong(*sockets, ourUser) != PortOwner::OurUser)
        return {};
    QList<quint64> numbers;
    for (const ListeningSocket &socket : *sockets)
        numbers.append(socket.inode);
    return numbers;
}

} // namespace ostrel
