#include "observer/PortOwner.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "support/Printers.h"

#include "support/StrangersListener.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <bit>
#include <memory>
#include <vector>

using namespace ostrel;

namespace {

/// Tables as the kernel prints them, with a few lines of a busy machine.
class PortOwnerTables : public testing::Test
{
protected:
    static constexpr uid_t us = 1000;
    static constexpr quint16 port = 0x225F; // 8799

    void SetUp() override
    {
        static_assert(std::endian::native == std::endian::little, "the lines below are those of such a machine");
        write("tcp", {});
    }

    static QByteArray line(const char *local, const char *state, int user)
    {
        return QByteArray("   0: ") + local + " 00000000:0000 " + state + " 00000000:00000000 00:00000000 00000000 " +
               QByteArray::number(user).rightJustified(5) + "        0 12345 1 0000000000000000 100 0 0 10 0\n";
    }
    void write(const char *table, const QByteArray &lines)
    {
        const QByteArray head = "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid\n";
        ASSERT_TRUE(writeFileAtomically(m_folder.filePath(QString::fromLatin1(table)), head + lines).has_value());
    }
    PortOwner owner() const { return portOwnerInTables(port, us, m_folder.path()).value(); }

    QTemporaryDir m_folder;
};

TEST_F(PortOwnerTables, listenerOnLoopback_isToldByItsUser)
{
    EXPECT_EQ(owner(), PortOwner::Nobody);
    write("tcp", line("0100007F:225F", "0A", 1000));
    EXPECT_EQ(owner(), PortOwner::OurUser);
    write("tcp", line("0100007F:225F", "0A", 1001));
    EXPECT_EQ(owner(), PortOwner::AnotherUser);
    write("tcp", line("0100007F:225F", "0A", 0));
    EXPECT_EQ(owner(), PortOwner::AnotherUser) << "root is not us either";
}

TEST_F(PortOwnerTables, otherPortsAddressesAndStates_areNoListenersOfOurs)
{
    write("tcp", line("0100007F:2260", "0A", 1001) + line("0100007F:225F", "01", 1001) +
                     line("0100007F:225F", "06", 0) + line("0101A8C0:225F", "0A", 1001) +
                     line("0100007F:AAAA", "0A", 1001));
    EXPECT_EQ(owner(), PortOwner::Nobody);
}

TEST_F(PortOwnerTables, listenerOnEveryAddress_countsInBothTables)
{
    write("tcp", line("00000000:225F", "0A", 1001));
    EXPECT_EQ(owner(), PortOwner::AnotherUser);
    write("tcp", {});
    write("tcp6", line("00000000000000000000000000000000:225F", "0A", 1001));
    EXPECT_EQ(owner(), PortOwner::AnotherUser);
    write("tcp6", line("00000000000000000000000000000000:225F", "0A", 1000));
    EXPECT_EQ(owner(), PortOwner::OurUser);
}

TEST_F(PortOwnerTables, mappedLoopbackAddress_countsAsLoopback)
{
    write("tcp6", line("0000000000000000FFFF00000100007F:225F", "0A", 1001));
    EXPECT_EQ(owner(), PortOwner::AnotherUser);
    write("tcp6", line("00000000000000000000000001000000:225F", "0A", 1001));
    EXPECT_EQ(owner(), PortOwner::Nobody) << "::1 is never reached by 127.0.0.1";
}

TEST_F(PortOwnerTables, ourLoopbackListener_beatsAStrangersOnEveryAddress)
{
    write("tcp", line("0100007F:225F", "0A", 1000));
    write("tcp6", line("00000000000000000000000000000000:225F", "0A", 1001));
    EXPECT_EQ(owner(), PortOwner::OurUser);
}

TEST_F(PortOwnerTables, strangerOnEveryAddressBesideOurs_isOneTooMany)
{
    write("tcp", line("00000000:225F", "0A", 1000) + line("00000000:225F", "0A", 1001));
    EXPECT_EQ(owner(), PortOwner::AnotherUser);
}

TEST_F(PortOwnerTables, tableThatCannotBeRead_isAnErrorRatherThanNobody)
{
    const auto answer = portOwnerInTables(port, us, m_folder.filePath(QStringLiteral("gone")));
    ASSERT_FALSE(answer.has_value());
    EXPECT_TRUE(isFault(answer.error(), Fault::NoSuchFile));
}

/// Real sockets, looked up in each way that there is.
class PortOwnerOfTheSystem : public testing::Test
{
protected:
    static void expectOwner(quint16 port, uid_t user, PortOwner owner)
    {
        EXPECT_EQ(portOwner(port, user), owner);
        EXPECT_EQ(portOwnerInTables(port, user), owner);
    }
};

TEST_F(PortOwnerOfTheSystem, realListeners_areFoundWithTheirUser)
{
    QTcpServer ours;
    ASSERT_TRUE(ours.listen(QHostAddress::LocalHost));
    expectOwner(ours.serverPort(), ::geteuid(), PortOwner::OurUser);
    expectOwner(ours.serverPort(), ::geteuid() + 1, PortOwner::AnotherUser);
    const quint16 port = ours.serverPort();
    ours.close();
    expectOwner(port, ::geteuid(), PortOwner::Nobody);
    const StrangersListener stranger;
    ASSERT_NE(stranger.port(), 0);
    expectOwner(stranger.port(), StrangersListener::user(), PortOwner::OurUser);
    expectOwner(stranger.port(), StrangersListener::user() + 1, PortOwner::AnotherUser);
}

TEST_F(PortOwnerOfTheSystem, ownSockets_areNumberedWhereNobodyElseListens)
{
    QTcpServer ours;
    ASSERT_TRUE(ours.listen(QHostAddress::LocalHost));
    EXPECT_EQ(ownSockets(ours.serverPort(), ::geteuid()),
              QList<quint64>{listeningSockets(ours.serverPort()).value().first().inode});
    EXPECT_TRUE(ownSockets(ours.serverPort(), ::geteuid() + 1).isEmpty());
    const quint16 port = ours.serverPort();
    ours.close();
    EXPECT_TRUE(ownSockets(port, ::geteuid()).isEmpty());
    const StrangersListener stranger;
    EXPECT_EQ(ownSockets(stranger.port(), ::geteuid()).isEmpty(), StrangersListener::user() != ::geteuid());
}

TEST_F(PortOwnerOfTheSystem, listenersOnEveryAddressAndOnIpv6_areFound)
{
    QTcpServer everywhere, dual;
    ASSERT_TRUE(everywhere.listen(QHostAddress::AnyIPv4));
    expectOwner(everywhere.serverPort(), ::geteuid(), PortOwner::OurUser);
    ASSERT_TRUE(dual.listen(QHostAddress::Any));
    expectOwner(dual.serverPort(), ::geteuid(), PortOwner::OurUser);
}

TEST_F(PortOwnerOfTheSystem, listenerOfIpv6OnTheMappedLoopbackAddress_isFound)
{
    const int socket = ::socket(AF_INET6, SOCK_STREAM, 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    ASSERT_EQ(::inet_pton(AF_INET6, "::ffff:127.0.0.1", &address.sin6_addr), 1);
    socklen_t size = sizeof(address);
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    ASSERT_EQ(::bind(socket, generic, size), 0);
    ASSERT_EQ(::listen(socket, 1), 0);
    ASSERT_EQ(::getsockname(socket, generic, &size), 0);
    expectOwner(ntohs(address.sin6_port), ::geteuid(), PortOwner::OurUser);
    expectOwner(ntohs(address.sin6_port), ::geteuid() + 1, PortOwner::AnotherUser);
    ::close(socket);
}

TEST_F(PortOwnerOfTheSystem, listenersElsewhere_areNotFound)
{
    QTcpServer otherLoopback, loopback6;
    ASSERT_TRUE(otherLoopback.listen(QHostAddress(QStringLiteral("127.0.0.2"))));
    expectOwner(otherLoopback.serverPort(), ::geteuid(), PortOwner::Nobody);
    ASSERT_TRUE(loopback6.listen(QHostAddress::LocalHostIPv6));
    expectOwner(loopback6.serverPort(), ::geteuid(), PortOwner::Nobody);
}

TEST_F(PortOwnerOfTheSystem, connectionsOfThePort_areNoListeners)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QTcpSocket client;
    client.connectToHost(QHostAddress::LocalHost, server.serverPort());
    ASSERT_TRUE(client.waitForConnected());
    expectOwner(client.localPort(), ::geteuid(), PortOwner::Nobody);
    server.close();
    expectOwner(client.peerPort(), ::geteuid(), PortOwner::Nobody);
}

TEST_F(PortOwnerOfTheSystem, manyListenersOfOnePort_areAllLookedAt)
{
    // More of them than fit into one message of the kernel.
    QTcpServer elsewhere;
    ASSERT_TRUE(elsewhere.listen(QHostAddress(QStringLiteral("127.0.0.2"))));
    const quint16 port = elsewhere.serverPort();
    std::vector<std::unique_ptr<QTcpServer>> others;
    for (quint32 i = 3; i < 253; ++i) {
        others.push_back(std::make_unique<QTcpServer>());
        ASSERT_TRUE(others.back()->listen(QHostAddress(0x7f000000U + i), port));
    }
    expectOwner(port, ::geteuid(), PortOwner::Nobody);
    QTcpServer ours;
    ASSERT_TRUE(ours.listen(QHostAddress::LocalHost, port));
    expectOwner(port, ::geteuid(), PortOwner::OurUser);
}

} // namespace
