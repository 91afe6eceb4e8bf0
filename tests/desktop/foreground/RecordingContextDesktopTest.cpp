#include "context/ActiveApplicationContext.h"
#include "platform/atspi/AtspiAccess.h"
#include "platform/desktopentry/DesktopEntries.h"
#include "platform/x11/foreground/X11ForegroundSource.h"
#include "support/FakeAccessibilityTree.h"
#include "support/FakeBrowserScriptRunner.h"
#include "support/Printers.h"
#include "support/VirtualDesktop.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

ActiveDisplaySelection selected(const char *id, const char *label, const char *reason)
{
    return {.displayId = text(id), .displayLabel = text(label), .reason = text(reason)};
}

TEST(RecordingContextOnADesktop, consent_addsTitleAndWindowsDisplay)
{
    VirtualDesktop desktop({.size = {1920, 1080}, .windowManager = true});
    desktop.setMonitors({{.name = text("A"), .pixels = {0, 0, 960, 1080}, .primary = true, .hasConnector = true},
                         {.name = text("B"), .pixels = {960, 0, 960, 1080}}});
    desktop.startAccessibility();
    desktop.enter();
    const QList<ActiveDisplayCandidate> displays = {
        {.displayId = text("1"), .displayLabel = text("Display 1 (main)"), .bounds = {0, 0, 960, 1080}},
        {.displayId = text("2"), .displayLabel = text("Display 2"), .bounds = {960, 0, 960, 1080}}};
    DesktopEntries entries(DesktopEntries::sessionFolders());
    X11ForegroundSource foreground({}, [&entries](const QString &name) { return entries.applicationFor(name); });
    AtspiAccess access;
    // A terminal that registers nowhere: whatever is told comes from the window system.
    FakeAccessibilityTree tree;
    tree.onApplication = [](qint32) { return nullptr; };
    tree.onSystemWide = [] { return nullptr; };
    FakeBrowserScriptRunner browserScripts;
    ActiveApplicationContext context({.foreground = foreground,
                                      .accessibility = access,
                                      .tree = tree,
                                      .browserScripts = browserScripts,
                                      .excludesWindow = [](const WindowIdentity &) { return false; }});
    desktop.activate(desktop.startTerminal(text("Building"), text("60x10+1000+100")));
    desktop.moveMouse({10, 10});

    EXPECT_EQ(context.currentRecordingContext(displays),
              (ActiveRecordingContext{.appContextText = text("XTerm"),
                                      .activeDisplay = selected("1", "Display 1 (main)", "mouse")}));
    ASSERT_TRUE(access.request());
    EXPECT_EQ(context.currentRecordingContext(displays),
              (ActiveRecordingContext{.appContextText = text("Active context:\n- App: XTerm\n- Window: Building"),
                                      .activeDisplay = selected("2", "Display 2", "focusedWindow")}));
}

} // namespace
} // namespace ostrel
