#pragma once

#include "support/TestProcess.h"

#include <QFile>

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace ostrel {

/// A connection to a server that listens at a path; the caller closes it.
inline int connectedSocket(const QString &path)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray name = QFile::encodeName(path);
    std::memcpy(address.sun_path, name.constData(), std::size_t(name.size()));
    if (::connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        failTest(QStringLiteral("no connection to \"%1\"").arg(path));
    return descriptor;
}

} // namespace ostrel
