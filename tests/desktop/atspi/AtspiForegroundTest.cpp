#include "FakeProgram.h"
#include "platform/atspi/AtspiAccess.h"
#include "platform/atspi/AtspiForegroundSource.h"
#include "platform/atspi/AtspiRoles.h"
#include "platform/desktopentry/DesktopEntries.h"
#include "support/Printers.h"
#include "support/ScopedVariable.h"
#include "support/VirtualDesktop.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// Knows the applications "editor" and whatever else is added.
struct Lookup {
    QStringList known{text("editor")};

    ForegroundApplication operator()(const QString &name) const
    {
        const bool isKnown = known.contains(name);
        return {.localizedName = isKnown ? text("The ") + name : name,
                .bundleIdentifier = isKnown ? std::optional(text("org.example.") + name) : std::nullopt};
    }
};

QStringList factsOf(AtspiForegroundSource &source)
{
    QStringList facts;
    for (const UnavailableFact &each : source.unavailableFacts())
        facts.append(each.fact);
    return facts;
}

class AtspiForegroundOfAProgram : public testing::Test
{
protected:
    AtspiForegroundOfAProgram()
    {
        m_desktop.startAccessibility();
        m_desktop.enter();
        m_program = std::make_unique<FakeProgram>();
        m_program->set("root", {.role = 75, .name = text("editor"), .children = {"other", "window"}});
        m_program->set("other", {.role = 23, .name = text("Other")});
        setWindow({AtspiState::active});
    }

    void setWindow(const QList<int> &states)
    {
        m_program->set("window", {.role = 23, .name = text("notes.txt - Editor"), .states = states});
    }

    VirtualDesktop m_desktop{VirtualDesktop::Options{}};
    std::unique_ptr<FakeProgram> m_program;
    AtspiForegroundSource m_source{Lookup()};
};

TEST_F(AtspiForegroundOfAProgram, activeWindow_tellsApplicationAndTitle)
{
    const auto application = m_source.frontmostApplication();
    ASSERT_TRUE(application);
    EXPECT_EQ(application->localizedName, text("The editor"));
    EXPECT_EQ(application->bundleIdentifier, text("org.example.editor"));
    EXPECT_EQ(application->processIdentifier, ::getpid());
    EXPECT_EQ(application->windowClass, text("editor test_desktop_atspi"));
    EXPECT_EQ(m_source.focusedWindow()->title, text("notes.txt - Editor"));
    EXPECT_EQ(m_source.focusedWindow()->frame, std::nullopt);
    EXPECT_EQ(m_source.mouseLocation(), std::nullopt);
}

TEST_F(AtspiForegroundOfAProgram, noActiveWindow_nothingIsInFront)
{
    ASSERT_TRUE(m_source.frontmostApplication());
    setWindow({});
    EXPECT_FALSE(m_source.frontmostApplication());
    EXPECT_EQ(m_source.focusedWindow()->title, std::nullopt);
}

TEST_F(AtspiForegroundOfAProgram, severalActiveWindows_noneIsBelieved)
{
    m_program->set("other", {.role = 23, .name = text("Other"), .states = {AtspiState::active}});
    EXPECT_FALSE(m_source.frontmostApplication());
}

TEST_F(AtspiForegroundOfAProgram, nameWithoutAnEntry_isLookedUpByTheFileThatRuns)
{
    AtspiForegroundSource source(Lookup{.known = {text("test_desktop_atspi")}});
    m_program->set("root", {.role = 75, .name = text("Test"), .children = {"window"}});
    const auto application = source.frontmostApplication();
    ASSERT_TRUE(application);
    EXPECT_EQ(application->bundleIdentifier, text("org.example.test_desktop_atspi"));
}

TEST_F(AtspiForegroundOfAProgram, fileOfAnotherName_isNotTakenForTheApplication)
{
    AtspiForegroundSource source(Lookup{.known = {text("test_desktop_atspi")}});
    m_program->set("root", {.role = 75, .name = text("Script"), .children = {"window"}});
    const auto application = source.frontmostApplication();
    ASSERT_TRUE(application);
    EXPECT_EQ(application->localizedName, text("Script"));
    EXPECT_EQ(application->bundleIdentifier, std::nullopt);
}

TEST_F(AtspiForegroundOfAProgram, positions_areSaidToBeUnavailable)
{
    EXPECT_EQ(factsOf(m_source), (QStringList{text("window position"), text("pointer position")}));
}

TEST(AtspiForeground, noBus_tellsNothingAndWhy)
{
    const ScopedVariable nowhere("DBUS_SESSION_BUS_ADDRESS", QByteArray("unix:path=/nowhere/at/all"));
    AtspiForegroundSource source{Lookup()};
    EXPECT_FALSE(source.frontmostApplication());
    EXPECT_EQ(factsOf(source), (QStringList{text("foreground application"), text("window title"),
                                            text("window position"), text("pointer position")}));
}

TEST(AtspiForeground, realEditor_isFollowedWithoutAWindowSystem)
{
    VirtualDesktop desktop({.windowManager = true});
    desktop.startAccessibility();
    desktop.enter();
    ASSERT_TRUE(AtspiAccess().request());
    DesktopEntries entries(DesktopEntries::sessionFolders());
    AtspiForegroundSource source([&](const QString &name) { return entries.applicationFor(name); });
    const auto editor = desktop.startEditor(text("notes.txt"));
    const qint64 pid = desktop.run(text("xdotool"), {text("getwindowpid"), QString::number(editor)}).toLongLong();
    desktop.activate(editor);
    std::optional<ForegroundApplication> application;
    waitUntil(text("the editor in front"), 10s, [&] {
        application = source.frontmostApplication();
        return application.has_value();
    });
    EXPECT_EQ(application->bundleIdentifier, text("org.xfce.mousepad"));
    EXPECT_EQ(application->processIdentifier, pid);
    EXPECT_TRUE(source.focusedWindow()->title.value_or(QString()).endsWith(text("notes.txt - Mousepad")));

    desktop.startTerminal(text("Shell")); // shows no tree, and takes the focus
    waitUntil(text("nothing to be in front"), 10s, [&] { return !source.frontmostApplication(); });
}

} // namespace
} // namespace ostrel
