#include "capture/SleepWakeMonitor.h"
#include "support/FakeWorkspaceEvents.h"

#include <gtest/gtest.h>

#include <optional>

using namespace ostrel;

namespace {

TEST(SleepWakeMonitor, sleepAndWake_areToldEachOnce)
{
    FakeWorkspaceEvents workspace;
    SleepWakeMonitor monitor(workspace);
    int sleeps = 0;
    int wakes = 0;
    monitor.onWillSleep = [&sleeps] { ++sleeps; };
    monitor.onDidWake = [&wakes] { ++wakes; };
    workspace.sleep();
    EXPECT_EQ(sleeps, 1);
    EXPECT_EQ(wakes, 0);
    workspace.wake();
    EXPECT_EQ(sleeps, 1);
    EXPECT_EQ(wakes, 1);
}

TEST(SleepWakeMonitor, holdThatNobodyTakes_isLetGoOfAtOnce)
{
    FakeWorkspaceEvents workspace;
    SleepWakeMonitor monitor(workspace);
    workspace.sleep();
    EXPECT_FALSE(workspace.isHeldUp());
    monitor.onWillSleep = [&workspace] { EXPECT_TRUE(workspace.isHeldUp()); };
    workspace.sleep();
    EXPECT_FALSE(workspace.isHeldUp());
}

TEST(SleepWakeMonitor, holdThatIsTaken_lastsUntilItIsLetGoOf)
{
    FakeWorkspaceEvents workspace;
    SleepWakeMonitor monitor(workspace);
    std::shared_ptr<SystemHold> hold;
    monitor.onWillSleep = [&] { hold = monitor.takeHold(); };
    workspace.sleep();
    EXPECT_TRUE(workspace.isHeldUp());
    EXPECT_EQ(monitor.takeHold(), nullptr);
    hold.reset();
    EXPECT_FALSE(workspace.isHeldUp());
}

TEST(SleepWakeMonitor, eventsAfterItsEnd_reachNobody)
{
    FakeWorkspaceEvents workspace;
    int calls = 0;
    {
        SleepWakeMonitor monitor(workspace);
        monitor.onWillSleep = [&calls] { ++calls; };
        monitor.onDidWake = [&calls] { ++calls; };
    }
    workspace.sleep();
    workspace.wake();
    EXPECT_EQ(calls, 0);
    EXPECT_FALSE(workspace.isHeldUp());
}

} // namespace
