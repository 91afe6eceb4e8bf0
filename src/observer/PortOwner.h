#pragma once

#include "base/Error.h"

#include <QList>
#include <QString>

#include <sys/types.h>

namespace ostrel {

/// A socket that may answer connections to a port of 127.0.0.1.
struct ListeningSocket {
    uid_t user = 0;
    quint64 inode = 0;    ///< by which the kernel tells it from others
    bool isExact = false; ///< bound to 127.0.0.1, not to every address
};

/// The sockets of the kernel's tables that a connection may reach: one that is bound to exactly 127.0.0.1 alone, else
/// all those bound to every address. Cost, thread and errors as for `portOwnerInTables`.
Result<QList<ListeningSocket>> listeningSockets(quint16 port, const QString &procNet = QStringLiteral("/proc/net"));

/// Who would answer a connection to a port of 127.0.0.1.
enum class PortOwner { Nobody, OurUser, AnotherUser };

/// Asks the kernel for the sockets that listen on the port. One bound to 127.0.0.1 decides; else those bound to every
/// address do. Takes some 50 microseconds, and the time of `portOwnerInTables` where the kernel answers only by those.
/// Any thread; not the main one.
/// @param ourUser who "we" are
/// @return the error of `portOwnerInTables`
Result<PortOwner> portOwner(quint16 port, uid_t ourUser);

/// The kernel's numbers of the sockets that would answer, where all of them are ours; none otherwise, and where the
/// kernel does not say. Cost and thread as for `portOwner`.
QList<quint64> ownSockets(quint16 port, uid_t ourUser);

/// The same by the kernel's printed tables. Listening sockets stand first in them, so finding one takes less than a
/// millisecond; finding none may take tens of them on a machine with many connections.
/// @param procNet the folder of the tables, `tcp` and `tcp6`
/// @return the file's error when `tcp` can't be read; a missing `tcp6` means a system without IPv6
Result<PortOwner> portOwnerInTables(quint16 port, uid_t ourUser, const QString &procNet = QStringLiteral("/proc/net"));

} // namespace ostrel
