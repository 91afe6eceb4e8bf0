#include "platform/x11/base/X11Liveness.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <xcb/xcb.h>

namespace ostrel {

namespace {

class Socket
{
public:
    Socket() : m_descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    ~Socket()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }

    int descriptor() const { return m_descriptor; }

private:
    const int m_descriptor;
};

/// The number of a display of this machine.
std::optional<int> localDisplayNumber(const QByteArray &display)
{
    char *host = nullptr;
    int number = 0;
    if (!xcb_parse_display(display.isEmpty() ? nullptr : display.constData(), &host, &number, nullptr))
        return std::nullopt;
    const bool isLocal = *host == '\0' || qstrcmp(host, "unix") == 0;
    std::free(host);
    return isLocal ? std::optional(number) : std::nullopt;
}

/// @return 0 or the error's number
int connectTo(int number, const Socket &socket)
{
    if (socket.descriptor() < 0)
        return EMFILE;
    const QByteArray path = "/tmp/.X11-unix/X" + QByteArray::number(number);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() + 1 >= qsizetype(sizeof address.sun_path))
        return ENAMETOOLONG;
    // Linux first knows the name without a file, which no clean-up of /tmp takes away.
    std::ranges::copy(path, address.sun_path + 1);
    const auto abstractLength = socklen_t(offsetof(sockaddr_un, sun_path) + 1 + std::size_t(path.size()));
    const auto *generic = reinterpret_cast<const sockaddr *>(&address);
    if (::connect(socket.descriptor(), generic, abstractLength) == 0)
        return 0;
    if (errno == EAGAIN)
        return EAGAIN;
    std::memset(address.sun_path, 0, sizeof address.sun_path);
    std::ranges::copy(path, address.sun_path);
    return ::connect(socket.descriptor(), generic, sizeof address) == 0 ? 0 : errno;
}

bool waitForData(const Socket &socket, std::chrono::milliseconds patience)
{
    pollfd descriptor{.fd = socket.descriptor(), .events = POLLIN, .revents = 0};
    int ready = 0;
    do {
        ready = ::poll(&descriptor, 1, int(patience.count()));
    } while (ready < 0 && errno == EINTR);
    return ready != 0;
}

bool answers(const Socket &socket, std::chrono::milliseconds patience)
{
    // The beginning of a connection, of a version of the protocol that there is not: the server refuses, and nobody has
    // become its client.
    constexpr std::array<char, 12> greeting{'l'};
    if (::send(socket.descriptor(), greeting.data(), greeting.size(), MSG_NOSIGNAL) < 0)
        return true; // it has gone
    bool hasAnswered = false;
    std::array<char, 256> answer{};
    // To the end: hanging up on the server in the middle of its words takes it through code that is seldom tried.
    while (waitForData(socket, patience)) {
        hasAnswered = true;
        if (::recv(socket.descriptor(), answer.data(), answer.size(), 0) <= 0)
            break;
    }
    return hasAnswered;
}

} // namespace

bool isServerAnswering(const QByteArray &display, std::chrono::milliseconds patience)
{
    const auto number = localDisplayNumber(display);
    if (!number)
        return true;
    const Socket socket;
    switch (connectTo(*number, socket)) {
    case 0:
        return answers(socket, patience);
    case EAGAIN: // so many wait already that nobody can be accepting them
        return false;
    default:
        return true;
    }
}

} // namespace ostrel
