#include "observer/SocketDiagnosis.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ostrel {

namespace {

struct Question {
    nlmsghdr header;
    inet_diag_req_v2 request;
};

/// An open connection to the kernel's socket diagnosis.
class Diagnosis
{
public:
    Diagnosis() : m_socket(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {}
    Diagnosis(const Diagnosis &) = delete;
    Diagnosis &operator=(const Diagnosis &) = delete;
    ~Diagnosis()
    {
        if (m_socket >= 0)
            ::close(m_socket);
    }

    /// Appends the listeners of one address family. @return false when the kernel gave no complete answer
    bool list(sa_family_t family, quint16 port, QList<ListeningSocket> &sockets)
    {
        if (!ask(family, port))
            return false;
        // The kernel answers in as many messages as it likes, and says which is the last.
        for (;;) {
            const ssize_t size = ::recv(m_socket, m_buffer.data(), m_buffer.size(), MSG_TRUNC);
            if (size < 0 && errno == EINTR)
                continue;
            if (size <= 0 || std::size_t(size) > m_buffer.size())
                return false;
            if (const auto isComplete = read(std::size_t(size), port, sockets))
                return *isComplete;
        }
    }

private:
    bool ask(sa_family_t family, quint16 port) const
    {
        Question question{};
        question.header.nlmsg_len = sizeof(question);
        question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
        question.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        question.request.sdiag_family = std::uint8_t(family);
        question.request.sdiag_protocol = IPPROTO_TCP;
        question.request.idiag_states = 1U << TCP_LISTEN;
        question.request.id.idiag_sport = htons(port);
        return m_socket >= 0 && ::send(m_socket, &question, sizeof(question), 0) == ssize_t(sizeof(question));
    }

    /// Reads what has come. @return whether the answer is complete or has failed; nothing while there is more to come
    std::optional<bool> read(std::size_t size, quint16 port, QList<ListeningSocket> &sockets) const
    {
        nlmsghdr header{};
        for (std::size_t at = 0; at + sizeof(header) <= size; at += NLMSG_ALIGN(header.nlmsg_len)) {
            std::memcpy(&header, m_buffer.data() + at, sizeof(header));
            if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > size - at ||
                (header.nlmsg_flags & NLM_F_DUMP_INTR) != 0)
                return false;
            if (header.nlmsg_type == NLMSG_DONE)
                return true;
            inet_diag_msg socket{};
            if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY || header.nlmsg_len < NLMSG_LENGTH(sizeof(socket)))
                return false;
            std::memcpy(&socket, m_buffer.data() + at + NLMSG_HDRLEN, sizeof(socket));
            const auto isExact = isExactlyLoopback(socket);
            if (isExact && ntohs(socket.id.idiag_sport) == port)
                sockets.append({.user = socket.idiag_uid, .inode = socket.idiag_inode, .isExact = *isExact});
        }
        return std::nullopt;
    }

    /// @return true for 127.0.0.1, false for every address, nothing for any other
    static std::optional<bool> isExactlyLoopback(const inet_diag_msg &socket)
    {
        const auto &words = socket.id.idiag_src;
        const bool isVersion4 = socket.idiag_family == AF_INET;
        const std::size_t wordCount = isVersion4 ? 1 : std::size(words);
        if (std::all_of(words, words + wordCount, [](std::uint32_t word) { return word == 0; }))
            return false; // one bound to "::" mostly serves IPv4 as well
        const bool isMapped = words[0] == 0 && words[1] == 0 && words[2] == htonl(0xffff);
        const bool isLoopback = words[wordCount - 1] == htonl(INADDR_LOOPBACK) && (isVersion4 || isMapped);
        return isLoopback ? std::optional(true) : std::nullopt;
    }

    int m_socket;
    alignas(nlmsghdr) std::array<std::byte, 16384> m_buffer;
};

} // namespace

std::optional<QList<ListeningSocket>> diagnosedSockets(quint16 port)
{
    QList<ListeningSocket> sockets;
    Diagnosis diagnosis;
    for (const sa_family_t family : {AF_INET, AF_INET6}) {
        if (!diagnosis.list(family, port, sockets))
            return std::nullopt;
    }
    return sockets;
}

} // namespace ostrel
