#include "platform/atspi/AtspiAccess.h"
#include "platform/atspi/AtspiTree.h"

#include "FakeProgram.h"
#include "context/AccessibilityContextReader.h"
#include "platform/atspi/AtspiRoles.h"
#include "support/Printers.h"
#include "support/ScopedVariable.h"
#include "support/VirtualDesktop.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>
#include <unistd.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

/// A sample may last that long; what it takes besides is the machine's.
constexpr auto sampleLimit = 400ms;
constexpr qint64 withMarginMs = 2'000;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

ActiveApplicationContextDetails sample(AtspiTree &tree, qint64 pid)
{
    tree.beginSample(QDeadlineTimer(sampleLimit));
    return AccessibilityContextReader(tree).read(qint32(pid), {});
}

bool isEmpty(const ActiveApplicationContextDetails &details)
{
    return !details.windowTitle && !details.focusedElement && !details.website && !details.pageTitle &&
           !details.windowFrame;
}

TEST(AtspiTreeOfRealPrograms, editor_tellsWindowAndFocus)
{
    VirtualDesktop desktop({.windowManager = true});
    desktop.startAccessibility();
    desktop.enter();
    AtspiAccess access;
    ASSERT_TRUE(access.request());
    const auto window = desktop.startEditor(text("notes.txt"));
    const qint64 pid = desktop.run(text("xdotool"), {text("getwindowpid"), QString::number(window)}).toLongLong();
    desktop.activate(window);

    AtspiTree tree;
    ActiveApplicationContextDetails details;
    waitUntil(text("the editor's tree"), 10s, [&] {
        details = sample(tree, pid);
        return details.windowTitle && details.focusedElement;
    });
    EXPECT_TRUE(details.windowTitle->endsWith(text("notes.txt - Mousepad"))) << qPrintable(*details.windowTitle);
    EXPECT_EQ(details.focusedElement, text("text area"));
    EXPECT_EQ(details.website, std::nullopt);
    EXPECT_EQ(details.pageTitle, std::nullopt);
    EXPECT_EQ(details.windowFrame, std::nullopt);
}

TEST(AtspiTreeOfRealPrograms, terminalWithoutATree_tellsNothing)
{
    VirtualDesktop desktop({});
    desktop.startAccessibility();
    desktop.enter();
    TestProcess &terminal = desktop.start(text("xterm"), {text("-T"), text("Shell"), text("-e"), text("cat")});
    desktop.waitForWindow(text("Shell"));
    AtspiTree tree;
    EXPECT_TRUE(isEmpty(sample(tree, terminal.pid())));
}

TEST(AtspiTreeOfRealPrograms, programThatHangs_isAbsentUntilItGoesOn)
{
    VirtualDesktop desktop({.windowManager = true});
    desktop.startAccessibility();
    desktop.enter();
    AtspiAccess access;
    ASSERT_TRUE(access.request());
    TestProcess &editor = desktop.start(text("mousepad"), {text("--disable-server")});
    desktop.activate(desktop.waitForWindow(text("Untitled 1 - Mousepad")));
    AtspiTree tree;
    const auto isTold = [&] { return sample(tree, editor.pid()).windowTitle.has_value(); };
    waitUntil(text("the editor's tree"), 10s, isTold);

    editor.freeze();
    for (const bool isFirst : {true, false}) {
        SCOPED_TRACE(isFirst);
        QElapsedTimer elapsed;
        elapsed.start();
        EXPECT_EQ(sample(tree, editor.pid()).windowTitle, std::nullopt);
        EXPECT_LT(elapsed.elapsed(), withMarginMs);
    }
    // Whoever has never spoken to it isn't held up more.
    AtspiTree another;
    EXPECT_EQ(sample(another, editor.pid()).windowTitle, std::nullopt);
    editor.thaw();
    waitUntil(text("the editor to go on"), 10s, isTold);
}

TEST(AtspiTreeWithoutABus, nobodyListens_nothingIsToldAndNothingStarted)
{
    VirtualDesktop desktop({.sessionBus = false});
    desktop.enter();
    const ScopedVariable noAddress("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    AtspiTree tree;
    EXPECT_TRUE(isEmpty(sample(tree, ::getpid())));
    EXPECT_FALSE(QFile::exists(desktop.path(text("run/bus"))));
    const ScopedVariable nowhere("DBUS_SESSION_BUS_ADDRESS", QByteArray("unix:path=/nowhere/at/all"));
    EXPECT_TRUE(isEmpty(sample(tree, ::getpid())));
    EXPECT_FALSE(tree.application(::getpid()));
    EXPECT_FALSE(tree.systemWide());
    EXPECT_TRUE(std::holds_alternative<std::monostate>(tree.attribute(nullptr, text("AXTitle"))));
    EXPECT_FALSE(tree.find(nullptr, text("AXWebArea")));
}

TEST(AtspiTreeWithoutABus, sessionBusThatHangs_isGivenUp)
{
    VirtualDesktop desktop({});
    desktop.startAccessibility();
    desktop.enter();
    FakeProgram program;
    program.set("root", {.children = {"window"}});
    program.set("window", {.name = text("Window"), .states = {AtspiState::active}});
    AtspiTree tree;
    desktop.bus().freeze();
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_EQ(sample(tree, ::getpid()).windowTitle, std::nullopt);
    EXPECT_LT(elapsed.elapsed(), withMarginMs);
    desktop.bus().thaw();
    EXPECT_EQ(sample(tree, ::getpid()).windowTitle, text("Window"));
}

TEST(AtspiTreeWithoutABus, busThatEndedAndCameBack_isFoundAgain)
{
    VirtualDesktop desktop({});
    TestProcess &launcher = desktop.startAccessibility();
    desktop.enter();
    AtspiTree tree;
    const FakeProgram::Object root{.children = {"window"}};
    {
        FakeProgram program;
        program.set("root", root);
        program.set("window", {.name = text("Before"), .states = {AtspiState::active}});
        EXPECT_EQ(sample(tree, ::getpid()).windowTitle, text("Before"));
        launcher.stop();
        desktop.restartBus();
        EXPECT_EQ(sample(tree, ::getpid()).windowTitle, std::nullopt);
    }
    desktop.startAccessibility();
    FakeProgram program;
    program.set("root", root);
    program.set("window", {.name = text("After"), .states = {AtspiState::active}});
    EXPECT_EQ(sample(tree, ::getpid()).windowTitle, text("After"));
}

} // namespace
} // namespace ostrel
