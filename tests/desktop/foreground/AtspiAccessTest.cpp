#include "platform/atspi/AtspiAccess.h"
#include "support/Printers.h"
#include "support/ScopedVariable.h"
#include "support/VirtualDesktop.h"

#include "base/SerialQueue.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

TEST(AtspiAccess, switchOff_isNotTrustedUntilAsked)
{
    VirtualDesktop desktop({});
    desktop.startAccessibility();
    desktop.enter();
    AtspiAccess access;
    EXPECT_FALSE(access.isTrusted());
    EXPECT_TRUE(access.request());
    EXPECT_TRUE(access.isTrusted());
    // It is the desktop's switch, not this object's memory.
    AtspiAccess another;
    EXPECT_TRUE(another.isTrusted());
}

TEST(AtspiAccess, onAWorkerThread_worksAndCloses)
{
    VirtualDesktop desktop({});
    desktop.startAccessibility();
    desktop.enter();
    SerialQueue queue(QStringLiteral("context"));
    auto access = std::make_unique<AtspiAccess>();
    EXPECT_FALSE(queue.sync([&] { return access->isTrusted(); }));
    EXPECT_TRUE(queue.sync([&] { return access->request(); }));
    queue.sync([&] { access.reset(); });
}

TEST(AtspiAccess, noBus_isNotTrustedAndStartsNothing)
{
    VirtualDesktop desktop({.sessionBus = false});
    desktop.enter();
    const ScopedVariable noAddress("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    AtspiAccess access;
    EXPECT_FALSE(access.isTrusted());
    EXPECT_FALSE(access.request());
    EXPECT_FALSE(QFile::exists(desktop.path(QStringLiteral("run/bus"))));
}

TEST(AtspiAccess, addressWithNobodyThere_isNotTrusted)
{
    const ScopedVariable gone("DBUS_SESSION_BUS_ADDRESS", QByteArray("unix:path=/nowhere/at/all"));
    AtspiAccess access;
    EXPECT_FALSE(access.isTrusted());
    EXPECT_FALSE(access.request());
}

TEST(AtspiAccess, addressOnlyInTheRuntimeFolder_isFound)
{
    VirtualDesktop desktop({});
    desktop.startAccessibility();
    desktop.enter();
    const ScopedVariable noAddress("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    AtspiAccess access;
    EXPECT_TRUE(access.request());
}

TEST(AtspiAccess, launcherThatHangs_isNotTrustedWhileItHangs)
{
    VirtualDesktop desktop({});
    TestProcess &launcher = desktop.startAccessibility();
    desktop.enter();
    AtspiAccess access;
    ASSERT_TRUE(access.request());
    launcher.freeze();
    EXPECT_FALSE(access.isTrusted());
    launcher.thaw();
    EXPECT_TRUE(access.isTrusted());
}

TEST(AtspiAccess, restartedBus_isFoundAgain)
{
    VirtualDesktop desktop({});
    desktop.startAccessibility();
    desktop.enter();
    AtspiAccess access;
    ASSERT_TRUE(access.request());
    desktop.restartBus();
    desktop.startAccessibility();
    EXPECT_FALSE(access.isTrusted()); // the new switch is off
    EXPECT_TRUE(access.request());
}

} // namespace
} // namespace ostrel
