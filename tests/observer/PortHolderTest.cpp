#include "observer/PortHolder.h"

#include "support/Printers.h"
#include "support/StrangersListener.h"

#include <QCoreApplication>
#include <QTcpServer>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

TEST(PortHolder, ourOwnListener_isToldByItsProcessAndCommandLine)
{
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    const auto holder = portHolder(server.serverPort());
    ASSERT_TRUE(holder.has_value());
    ASSERT_TRUE(holder->has_value());
    EXPECT_EQ((*holder)->user, ::geteuid());
    EXPECT_EQ((*holder)->processId, QCoreApplication::applicationPid());
    EXPECT_EQ((*holder)->program(), QStringLiteral("test_observer"));
    EXPECT_FALSE((*holder)->isObserver());
}

TEST(PortHolder, listenerOfAnotherUser_isToldByTheirName)
{
    ASSERT_EQ(::geteuid(), 0U) << "only root can be another user for a test";
    const StrangersListener stranger;
    const auto holder = portHolder(stranger.port());
    ASSERT_TRUE(holder.has_value());
    ASSERT_TRUE(holder->has_value());
    EXPECT_EQ((*holder)->user, StrangersListener::user());
    EXPECT_EQ((*holder)->userName, QStringLiteral("nobody"));
}

TEST(PortHolder, listenerThatCannotBeSeen_isKnownByItsUserAlone)
{
    QTcpServer server; // root's, which an ordinary user may not look into
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    const int status = inForkedChild([&server] {
        const quint16 port = server.serverPort();
        ::close(int(server.socketDescriptor())); // the child has inherited it
        const auto holder = dropPrivileges() ? portHolder(port) : std::unexpected(Error());
        const bool isUnseen = holder && *holder && !(*holder)->processId && (*holder)->program().isEmpty();
        return isUnseen ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
}

TEST(PortHolder, portOfNobody_hasNone)
{
    quint16 port = 0;
    {
        QTcpServer server;
        ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
        port = server.serverPort();
    }
    const auto holder = portHolder(port);
    ASSERT_TRUE(holder.has_value());
    EXPECT_FALSE(holder->has_value());
}

TEST(PortHolder, kernelTablesThatCannotBeRead_areAnError)
{
    EXPECT_FALSE(portHolder(8799, QStringLiteral("/nowhere")).has_value());
}

TEST(PortHolder, observer_isKnownByWhatNodeRuns)
{
    PortHolder holder;
    holder.commandLine = {QStringLiteral("/usr/bin/node"), QStringLiteral("dist/observer.mjs")};
    EXPECT_TRUE(holder.isObserver());
    EXPECT_EQ(holder.program(), QStringLiteral("node"));
    holder.commandLine = {QStringLiteral("node"), QStringLiteral("dist/other.mjs")};
    EXPECT_FALSE(holder.isObserver());
}

} // namespace
