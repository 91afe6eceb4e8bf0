#pragma once

#include <QByteArray>
#include <QList>

namespace ostrel {

/// Where a bus listens on this machine.
struct UnixAddress {
    QByteArray path;         ///< of a file, or an abstract name
    bool isAbstract = false; ///< known to the kernel alone

    bool operator==(const UnixAddress &) const = default;
};

/// Those of a bus's address that are sockets of this machine, in their order: "unix:path=/run/user/1000/bus;..." Other
/// kinds, and what can't be understood, are left out.
QList<UnixAddress> unixAddressesIn(const QByteArray &address);

/// Never blocks, nor will what is read and written: a bus that hangs counts as one that is not there.
/// @return a descriptor, the caller's to close; negative when nobody listens, or too many wait already
int connectTo(const UnixAddress &address);

} // namespace ostrel
