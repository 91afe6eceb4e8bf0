#include "platform/sessionbus/UnixAddress.h"

#include <algorithm>
#include <cstddef>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ostrel {

QList<UnixAddress> unixAddressesIn(const QByteArray &address)
{
    const QByteArray kind = "unix:";
    QList<UnixAddress> found;
    for (const QByteArray &one : address.split(';')) {
        if (!one.startsWith(kind))
            continue;
        for (const QByteArray &property : one.mid(kind.size()).split(',')) {
            const qsizetype sign = property.indexOf('=');
            const QByteArray name = property.left(sign);
            const QByteArray value = QByteArray::fromPercentEncoding(property.mid(sign + 1));
            if (sign > 0 && !value.isEmpty() && (name == "path" || name == "abstract"))
                found.append({.path = value, .isAbstract = name == "abstract"});
        }
    }
    return found;
}

int connectTo(const UnixAddress &address)
{
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const std::size_t prefix = address.isAbstract ? 1 : 0; // a zero byte
    if (std::size_t(address.path.size()) + 1 > sizeof(name.sun_path))
        return -1;
    std::ranges::copy(address.path, name.sun_path + prefix);
    // Of an abstract name every byte counts.
    const auto length = socklen_t(offsetof(sockaddr_un, sun_path) + std::size_t(address.path.size()) + 1);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0)
        return -1;
    if (::connect(descriptor, reinterpret_cast<const sockaddr *>(&name), length) == 0)
        return descriptor;
    ::close(descriptor);
    return -1;
}

} // namespace ostrel
