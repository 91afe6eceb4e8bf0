#pragma once

#include "support/TestHome.h"

#include <QtGlobal>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

namespace ostrel {

/// A real program that listens on a port of 127.0.0.1 and counts what it is sent; another user's where the tests run
/// as root. It ends when this object goes.
class StrangersListener
{
public:
    StrangersListener()
    {
        std::array<int, 2> orders{}, reports{};
        if (::pipe(orders.data()) != 0 || ::pipe(reports.data()) != 0)
            return;
        m_child = ::fork();
        if (m_child == 0) {
            ::close(orders[1]);
            ::close(reports[0]);
            listenAndCount(orders[0], reports[1]);
        }
        ::close(orders[0]);
        ::close(reports[1]);
        m_orders = orders[1];
        m_reports = reports[0];
        m_port = quint16(readReport());
    }
    StrangersListener(const StrangersListener &) = delete;
    StrangersListener &operator=(const StrangersListener &) = delete;
    ~StrangersListener()
    {
        if (m_orders >= 0)
            finish();
        ::close(m_reports);
    }

    /// 0 when it could not listen.
    quint16 port() const { return m_port; }
    /// The user that the listening socket belongs to.
    static uid_t user() { return ::geteuid() == 0 ? unprivilegedUser : ::geteuid(); }

    /// Ends it. @return how many connections and bytes it got, as connections * 1'000'000 + bytes; -1 if it failed
    qint64 finish()
    {
        ::close(m_orders);
        m_orders = -1;
        const qint64 count = readReport();
        ::waitpid(m_child, nullptr, 0);
        return count;
    }

private:
    qint64 readReport() const
    {
        qint64 value = -1;
        return ::read(m_reports, &value, sizeof(value)) == sizeof(value) ? value : -1;
    }

    static void report(int reports, qint64 value)
    {
        if (::write(reports, &value, sizeof(value)) != sizeof(value))
            ::_exit(1);
    }

    /// The child. Only plain system calls: the process was forked from one with threads.
    [[noreturn]] static void listenAndCount(int orders, int reports)
    {
        const int server = dropPrivileges() ? ::socket(AF_INET, SOCK_STREAM, 0) : -1;
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        if (server < 0 || ::bind(server, generic, size) != 0 || ::listen(server, 8) != 0 ||
            ::getsockname(server, generic, &size) != 0)
            ::_exit(1);
        report(reports, ntohs(address.sin_port));

        qint64 count = 0;
        std::array<pollfd, 2> waits = {pollfd{orders, POLLIN, 0}, pollfd{server, POLLIN, 0}};
        // The end of the orders comes last: a connection that was made before it stands in the same answer.
        for (bool ended = false; !ended;) {
            ::poll(waits.data(), waits.size(), -1);
            ended = waits[0].revents != 0;
            if (waits[1].revents != 0)
                count += 1'000'000 + bytesOfOneConnection(server);
        }
        report(reports, count);
        ::_exit(0);
    }

    static qint64 bytesOfOneConnection(int server)
    {
        const int connection = ::accept(server, nullptr, nullptr);
        pollfd wait{connection, POLLIN, 0};
        std::array<char, 65536> buffer{};
        qint64 count = 0;
        while (::poll(&wait, 1, 500) > 0) {
            const ssize_t received = ::read(connection, buffer.data(), buffer.size());
            if (received <= 0)
                break;
            count += received;
        }
        ::close(connection);
        return count;
    }

    pid_t m_child = -1;
    int m_orders = -1;
    int m_reports = -1;
    quint16 m_port = 0;
};

} // namespace ostrel
