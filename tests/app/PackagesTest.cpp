#include "app/doctor/Packages.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

TEST(Packages, system_isKnownByItsOwnNameOrByWhatItDescendsFrom)
{
    EXPECT_EQ(packageManagerOf("NAME=x\nID=debian\n"), PackageManager::Apt);
    EXPECT_EQ(packageManagerOf("ID=ubuntu\nID_LIKE=debian\n"), PackageManager::Apt);
    EXPECT_EQ(packageManagerOf("ID_LIKE=\"ubuntu debian\"\nID=linuxmint\n"), PackageManager::Apt);
    EXPECT_EQ(packageManagerOf("ID=fedora\n"), PackageManager::Dnf);
    EXPECT_EQ(packageManagerOf("ID=\"rocky\"\nID_LIKE=\"rhel centos fedora\"\n"), PackageManager::Dnf);
    EXPECT_EQ(packageManagerOf("ID=endeavouros\nID_LIKE='arch'\n"), PackageManager::Pacman);
    EXPECT_EQ(packageManagerOf("ID=\"opensuse-tumbleweed\"\nID_LIKE=\"opensuse suse\"\n"), PackageManager::Zypper);
}

TEST(Packages, unknownSystem_isNotGuessed)
{
    EXPECT_EQ(packageManagerOf(""), PackageManager::Unknown);
    EXPECT_EQ(packageManagerOf("ID=nixos\nVERSION_ID=debian\n"), PackageManager::Unknown);
    EXPECT_EQ(installCommand(PackageManager::Unknown, Package::Node), QStringLiteral("install the package nodejs"));
}

TEST(Packages, command_isTheSystemsOwn)
{
    EXPECT_EQ(installCommand(PackageManager::Apt, Package::Node), QStringLiteral("sudo apt install nodejs"));
    EXPECT_EQ(installCommand(PackageManager::Dnf, Package::Keyring), QStringLiteral("sudo dnf install gnome-keyring"));
    EXPECT_EQ(installCommand(PackageManager::Pacman, Package::WindowManager), QStringLiteral("sudo pacman -S openbox"));
    EXPECT_EQ(installCommand(PackageManager::Zypper, Package::Accessibility),
              QStringLiteral("sudo zypper install at-spi2-core"));
}

} // namespace
