#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ostrel {

/// A port of 127.0.0.1 that nobody listens on at the moment; 0 when there is none.
inline int freePort()
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const bool bound = ::bind(socket, reinterpret_cast<sockaddr *>(&address), length) == 0 &&
                       ::getsockname(socket, reinterpret_cast<sockaddr *>(&address), &length) == 0;
    ::close(socket);
    return bound ? ntohs(address.sin_port) : 0;
}

} // namespace ostrel
