#include "observer/PortOwner.h"

#include "base/Fault.h"

#include <QByteArrayView>
#include <QFile>
#include <QList>

#include <cerrno>
#include <fstream>
#include <string>

#include <arpa/inet.h>

namespace ostrel {

namespace {

/// A 32-bit word of an address, as the kernel prints it: in the byte order of the machine.
QByteArray printedWord(quint32 hostOrder)
{
    return QByteArray::number(htonl(hostOrder), 16).toUpper().rightJustified(8, '0');
}

/// What listens on the port: bound to exactly the loopback address, or to every address.
struct Listeners {
    bool oursExact = false;
    bool foreignExact = false;
    bool oursAnywhere = false;
    bool foreignAnywhere = false;

    bool exact() const { return oursExact || foreignExact; }

    PortOwner owner() const
    {
        // The kernel prefers the exact address. Should several sockets share one rank, any stranger is one too many.
        const bool foreign = exact() ? foreignExact : foreignAnywhere;
        const bool ours = exact() ? oursExact : oursAnywhere;
        return foreign ? PortOwner::AnotherUser : ours ? PortOwner::OurUser : PortOwner::Nobody;
    }
};

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

/// One line is "sl: address:port remote:port state tx:rx tr:when retransmits uid ...".
void countLine(const QByteArray &line, const Table &table, const QByteArray &portSuffix, uid_t ourUser,
               Listeners &listeners)
{
    const QList<QByteArray> columns = line.simplified().split(' ');
    constexpr qsizetype addressColumn = 1, stateColumn = 3, userColumn = 7;
    if (columns.size() <= userColumn || columns[stateColumn] != "0A" || !columns[addressColumn].endsWith(portSuffix))
        return;
    const QByteArray address = columns[addressColumn].chopped(portSuffix.size());
    const bool ours = columns[userColumn].toLongLong() == qint64(ourUser);
    if (address == table.loopback)
        (ours ? listeners.oursExact : listeners.foreignExact) = true;
    else if (address == table.anywhere)
        (ours ? listeners.oursAnywhere : listeners.foreignAnywhere) = true;
}

} // namespace

Result<PortOwner> portOwner(quint16 port, uid_t ourUser, const QString &procNet)
{
    const QByteArray portSuffix = ':' + QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
    Listeners listeners;
    for (const Table &table : tables()) {
        const QString path = procNet + u'/' + QLatin1String(table.name);
        errno = 0;
        std::ifstream file(QFile::encodeName(path).toStdString());
        if (!file && table.name == QByteArrayView("tcp"))
            return std::unexpected(fileError(errno != 0 ? errno : EIO, path));
        // Once the exact address is found nothing can change the verdict: reading on would cost a busy machine time.
        for (std::string line; !listeners.exact() && std::getline(file, line);) {
            if (line.find(portSuffix.constData()) != std::string::npos)
                countLine(QByteArray::fromStdString(line), table, portSuffix, ourUser, listeners);
        }
    }
    return listeners.owner();
}

} // namespace ostrel
