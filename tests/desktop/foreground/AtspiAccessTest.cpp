#include "platform/atspi/AtspiAccess.h"
#include "support/Printers.h"
#include "support/ScopedVariable.h"
#include "support/VirtualDesktop.h"

#include "base/SerialQueue.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

void turnOff(VirtualDesktop &desktop)
{
    desktop.run(QStringLiteral("dbus-send"),
                {QStringLiteral("--session"), QStringLiteral("--print-reply"), QStringLiteral("--dest=org.a11y.Bus"),
                 QStringLiteral("/org/a11y/bus"), QStringLiteral("org.freedesktop.DBus.Properties.Set"),
                 QStringLiteral("string:org.a11y.Status"), QStringLiteral("string:IsEnabled"),
                 QStringLiteral("variant:boolean:false")});
}

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

TEST(AtspiAccess, launcherThatHangs_isNotTrustedUntilItHasAnswered)
{
    VirtualDesktop desktop({});
    TestProcess &launcher = desktop.startAccessibility();
    desktop.enter();
    ASSERT_TRUE(AtspiAccess().request());
    AtspiAccess access;
    launcher.freeze();
    EXPECT_FALSE(access.isTrusted());
    launcher.thaw();
    EXPECT_TRUE(access.isTrusted());
}

TEST(AtspiAccess, switchThatStaysAsItIs_isNotAskedAgain)
{
    VirtualDesktop desktop({});
    TestProcess &launcher = desktop.startAccessibility();
    desktop.enter();
    AtspiAccess access;
    ASSERT_TRUE(access.request());
    launcher.freeze(); // a question would go unanswered, which counts as "no"
    EXPECT_TRUE(access.isTrusted());
}

TEST(AtspiAccess, switchTurnedByAnother_isFollowed)
{
    VirtualDesktop desktop({});
    desktop.startAccessibility();
    desktop.enter();
    AtspiAccess access;
    EXPECT_FALSE(access.isTrusted());
    ASSERT_TRUE(AtspiAccess().request());
    waitUntil(QStringLiteral("the consent to be heard of"), 5s, [&] { return access.isTrusted(); });
    turnOff(desktop);
    waitUntil(QStringLiteral("the end of the consent"), 5s, [&] { return !access.isTrusted(); });
}

TEST(AtspiAccess, launcherThatEnds_isNotTrustedAnyMore)
{
    VirtualDesktop desktop({});
    TestProcess &launcher = desktop.startAccessibility();
    desktop.enter();
    AtspiAccess access;
    ASSERT_TRUE(access.request());
    launcher.stop();
    waitUntil(QStringLiteral("the end of the switch"), 5s, [&] { return !access.isTrusted(); });
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
