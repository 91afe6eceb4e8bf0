#include "support/VirtualDesktop.h"
#include "support/Printers.h"

#include <QDir>
#include <QFile>

#include <gmock/gmock.h>
#include <stdexcept>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

/// Runs, and is not just waiting for its parent to take note of its end.
bool isAlive(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    return file.open(QIODevice::ReadOnly) && !file.readAll().contains(") Z ");
}

TEST(VirtualDesktop, session_withPrograms_isUsableAndEndsWhole)
{
    qint64 server = 0;
    qint64 stray = 0;
    QString folder;
    {
        VirtualDesktop desktop({.windowManager = true});
        folder = desktop.path(QString());
        server = desktop.server().pid();
        const auto terminal = desktop.startTerminal(QStringLiteral("First words"));
        desktop.activate(terminal);
        desktop.type(QStringLiteral("hello"));
        // A daemon that leaves its parent, as a service does that the bus has started.
        const QString pidFile = desktop.path(QStringLiteral("stray"));
        desktop.run(
            QStringLiteral("sh"),
            {QStringLiteral("-c"), QStringLiteral("setsid sleep 300 >/dev/null & echo $! > \"%1\"").arg(pidFile)});
        QFile file(pidFile);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        stray = file.readAll().trimmed().toLongLong();
        EXPECT_TRUE(isAlive(server));
        EXPECT_TRUE(isAlive(stray));
    }
    EXPECT_FALSE(isAlive(server));
    EXPECT_FALSE(isAlive(stray));
    EXPECT_FALSE(QDir(folder).exists());
}

TEST(VirtualDesktop, missingProgram_namesIt)
{
    VirtualDesktop desktop({.sessionBus = false});
    try {
        desktop.start(QStringLiteral("no-such-program-anywhere"));
        FAIL() << "it started";
    } catch (const std::runtime_error &error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("no-such-program-anywhere"));
    }
}

TEST(VirtualDesktop, monitors_areSetAndReplaced)
{
    VirtualDesktop desktop({.size = {1920, 1080}, .sessionBus = false});
    desktop.setMonitors(
        {{.name = QStringLiteral("A"), .pixels = {0, 0, 960, 1080}, .primary = true, .hasConnector = true},
         {.name = QStringLiteral("B"), .pixels = {960, 0, 960, 1080}}});
    const QByteArray two = desktop.run(QStringLiteral("xrandr"), {QStringLiteral("--listactivemonitors")});
    EXPECT_TRUE(two.contains("*A 960/254x1080/285+0+0"));
    EXPECT_TRUE(two.contains("B 960/254x1080/285+960+0"));
    desktop.setMonitors({{.name = QStringLiteral("C"), .pixels = {0, 0, 1920, 540}, .hasConnector = true}});
    const QByteArray one = desktop.run(QStringLiteral("xrandr"), {QStringLiteral("--listactivemonitors")});
    EXPECT_TRUE(one.contains("Monitors: 1"));
}

TEST(VirtualDesktop, enter_setsThisProcessUntilTheEnd)
{
    qputenv("DISPLAY", ":outer");
    {
        VirtualDesktop desktop({.sessionBus = false});
        desktop.enter();
        EXPECT_EQ(qgetenv("DISPLAY"), desktop.display());
        EXPECT_EQ(qgetenv("DBUS_SESSION_BUS_ADDRESS"), "disabled:");
    }
    EXPECT_EQ(qgetenv("DISPLAY"), ":outer");
    EXPECT_FALSE(qEnvironmentVariableIsSet("DBUS_SESSION_BUS_ADDRESS"));
    qunsetenv("DISPLAY");
}

TEST(VirtualDesktop, restartedServer_keepsItsDisplay)
{
    VirtualDesktop desktop({.sessionBus = false});
    const QByteArray display = desktop.display();
    const qint64 before = desktop.server().pid();
    desktop.restartServer();
    EXPECT_EQ(desktop.display(), display);
    EXPECT_NE(desktop.server().pid(), before);
    EXPECT_FALSE(desktop.run(QStringLiteral("xdotool"), {QStringLiteral("getmouselocation")}).isEmpty());
}

} // namespace
} // namespace ostrel
