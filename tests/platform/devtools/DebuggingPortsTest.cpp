#include "FakeProcesses.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

QStringList words(const char *line)
{
    return text(line).split(u' ');
}

TEST(DebuggingSwitches, portAndFolder_areReadAndTheLastCounts)
{
    EXPECT_EQ(debuggingSwitches(words("chromium --remote-debugging-port=0")), DebuggingSwitches());
    EXPECT_EQ(debuggingSwitches(words("chromium --remote-debugging-port=1 --user-data-dir=/a https://x/ "
                                      "--remote-debugging-port=9222 --user-data-dir=/b")),
              (DebuggingSwitches{.port = 9222, .userDataDir = text("/b")}));
}

TEST(DebuggingSwitches, noPortOnTheCommandLine_isNoDebugging)
{
    for (const char *line : {"chromium", "chromium --remote-debugging-port", "chromium --remote-debugging-port=",
                             "chromium --remote-debugging-port=x", "chromium --remote-debugging-port=65536",
                             "chromium --remote-debugging-pipe", "chromium -- --remote-debugging-port=0",
                             "chromium --remote-debugging-port=1 --remote-debugging-port=x"})
        EXPECT_EQ(debuggingSwitches(words(line)), std::nullopt) << line;
    EXPECT_EQ(debuggingSwitches({}), std::nullopt);
}

TEST(DebuggingSwitches, helperOfABrowser_isNoBrowser)
{
    EXPECT_EQ(debuggingSwitches(words("chromium --type=renderer --remote-debugging-port=0")), std::nullopt);
}

class DebuggingPortsTest : public testing::Test
{
protected:
    std::optional<quint16> port(qint32 process = FakeProcesses::browser)
    {
        const DebuggingPorts ports = m_machine.ports();
        return ports.portOf(process, profileFolders(text("com.google.Chrome"), ports.folders()));
    }

    FakeProcesses m_machine;
};

TEST_F(DebuggingPortsTest, notedPort_isTheBrowsersWhereItListens)
{
    m_machine.addBrowser(9001);
    EXPECT_EQ(port(), quint16(9001));
}

TEST_F(DebuggingPortsTest, portOnTheCommandLine_needsNoNote)
{
    m_machine.addBrowser(9001, {text("--remote-debugging-port=9222")});
    EXPECT_EQ(port(), std::nullopt) << "it does not listen there";
    m_machine.listeners[9222] = {FakeProcesses::browserSocket};
    EXPECT_EQ(port(), quint16(9222));
}

TEST_F(DebuggingPortsTest, folderOnTheCommandLine_replacesTheUsualOnes)
{
    m_machine.addBrowser(
        9001, {text("--remote-debugging-port=0"), text("--user-data-dir=") + m_machine.path(text("profile"))});
    EXPECT_EQ(port(), std::nullopt) << "the usual one is another browser's";
    m_machine.note(m_machine.path(text("profile")), 9002);
    m_machine.listeners[9002] = {FakeProcesses::browserSocket};
    EXPECT_EQ(port(), quint16(9002));
}

TEST_F(DebuggingPortsTest, commandLineThatTheBrowserWroteAnew_isTakenApart)
{
    m_machine.add(FakeProcesses::browser,
                  {text("/usr/lib/chromium/chromium --user-data-dir=") + m_machine.path(text("profile")) +
                   text(" --remote-debugging-port=0 https://example.org/")},
                  {FakeProcesses::browserSocket});
    m_machine.note(m_machine.path(text("profile")), 9001);
    m_machine.listeners[9001] = {FakeProcesses::browserSocket};
    EXPECT_EQ(port(), quint16(9001));
}

TEST_F(DebuggingPortsTest, noteThatOutlivedItsBrowser_givesNothing)
{
    m_machine.addBrowser(9001);
    m_machine.listeners.clear();
    EXPECT_EQ(port(), std::nullopt);
}

TEST_F(DebuggingPortsTest, portThatAnotherProgramOfOursHasTakenOver_givesNothing)
{
    m_machine.addBrowser(9001);
    m_machine.listeners[9001] = {4711};
    m_machine.add(4001, {text("python3")}, {4711});
    EXPECT_EQ(port(), std::nullopt);
}

TEST_F(DebuggingPortsTest, noteOfTwoProfiles_theOneOfThisBrowserCounts)
{
    m_machine.addBrowser(9001);
    m_machine.note(m_machine.path(text("home/.config/google-chrome")), 9003);
    m_machine.listeners[9003] = {4711};
    EXPECT_EQ(port(), quint16(9001));
}

TEST_F(DebuggingPortsTest, browserWithoutTheSwitch_isNotAskedThoughItListens)
{
    m_machine.addBrowser(9001, {});
    EXPECT_EQ(port(), std::nullopt) << "it would ask its user about each connection";
}

TEST_F(DebuggingPortsTest, processOfAnotherUserOrOfNobody_givesNothing)
{
    m_machine.addBrowser(9001);
    EXPECT_EQ(m_machine.ports(::geteuid() + 1).portOf(FakeProcesses::browser, {}), std::nullopt);
    for (const qint32 process : {0, -1, 4242})
        EXPECT_EQ(port(process), std::nullopt) << process;
}

TEST_F(DebuggingPortsTest, all_namesTheBrowsersThatListen)
{
    m_machine.addBrowser(9001);
    m_machine.add(4001, {text("/opt/x/chrome"), text("--remote-debugging-port=9222")}, {99});
    m_machine.add(4002, {text("/opt/x/chrome"), text("--remote-debugging-port=9222"), text("--type=gpu")}, {99});
    m_machine.add(4003, {text("/opt/y/chrome"), text("--remote-debugging-port=9333")}, {98});
    m_machine.listeners[9222] = {99};
    const QList<DebuggedBrowser> browsers = m_machine.ports().all();
    ASSERT_EQ(browsers.size(), 2);
    EXPECT_EQ(browsers[0].process, FakeProcesses::browser);
    EXPECT_EQ(browsers[0].port, 9001);
    EXPECT_EQ(browsers[1].process, 4001);
    EXPECT_EQ(browsers[1].port, 9222);
}

} // namespace
} // namespace ostrel
