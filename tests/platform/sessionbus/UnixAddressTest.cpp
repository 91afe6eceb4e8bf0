#include "platform/sessionbus/UnixAddress.h"

#include <gtest/gtest.h>

namespace ostrel {

void PrintTo(const UnixAddress &address, std::ostream *out)
{
    *out << (address.isAbstract ? "abstract " : "path ") << address.path.constData();
}

namespace {

using Addresses = QList<UnixAddress>;

TEST(UnixAddress, path_isUnderstood)
{
    EXPECT_EQ(unixAddressesIn("unix:path=/run/user/1000/bus"), (Addresses{{.path = "/run/user/1000/bus"}}));
}

TEST(UnixAddress, propertiesBesideThePath_areIgnored)
{
    EXPECT_EQ(unixAddressesIn("unix:guid=0123,abstract=/tmp/dbus-x,other"),
              (Addresses{{.path = "/tmp/dbus-x", .isAbstract = true}}));
}

TEST(UnixAddress, escapedCharacters_areThoseMeant)
{
    EXPECT_EQ(unixAddressesIn("unix:path=/tmp/a%2cb%20c"), (Addresses{{.path = "/tmp/a,b c"}}));
}

TEST(UnixAddress, severalAddresses_keepTheirOrderWithoutOtherKinds)
{
    EXPECT_EQ(unixAddressesIn("tcp:host=localhost,port=1;unix:path=/one;autolaunch:;unix:path=/two"),
              (Addresses{{.path = "/one"}, {.path = "/two"}}));
}

TEST(UnixAddress, nothingOfUse_isNone)
{
    for (const QByteArray nothing : {"", ";", "unix:", "unix:path=", "unix:tmpdir=/tmp", "unixexec:path=/bin/true"})
        EXPECT_EQ(unixAddressesIn(nothing), Addresses()) << nothing.constData();
}

TEST(UnixAddress, pathThatNoSocketCanHave_isNotConnectedTo)
{
    EXPECT_LT(connectTo({.path = QByteArray(200, 'x')}), 0);
    EXPECT_LT(connectTo({.path = "/nowhere/at/all"}), 0);
}

} // namespace
} // namespace ostrel
