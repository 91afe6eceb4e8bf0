#include "platform/devtools/BrowserProfiles.h"

#include "base/Files.h"
#include "support/Printers.h"
#include "support/ScopedVariable.h"
#include "support/TestHome.h"

#include <QDir>
#include <QSet>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace ostrel {
namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

const UserFolders user{.home = QStringLiteral("/home/u"), .config = QStringLiteral("/home/u/.config")};

TEST(ProfileFolders, packagesOfOneBrowser_areAllKnown)
{
    const QStringList chrome = profileFolders(text("com.google.Chrome"), user);
    for (const char *folder :
         {"/home/u/.config/chromium", "/home/u/.config/google-chrome", "/home/u/snap/chromium/common/chromium",
          "/home/u/.var/app/org.chromium.Chromium/config/chromium"})
        EXPECT_TRUE(chrome.contains(text(folder))) << folder;
    EXPECT_TRUE(
        profileFolders(text("com.brave.Browser"), user).contains(text("/home/u/.config/BraveSoftware/Brave-Browser")));
}

TEST(ProfileFolders, otherPrograms_haveNone)
{
    for (const char *program : {"org.mozilla.firefox", "", "com.google", "company.thebrowser.Browser"})
        EXPECT_EQ(profileFolders(text(program), user), QStringList()) << program;
}

TEST(ProfileFolders, noFolder_isTwoBrowsers)
{
    const QStringList all = allProfileFolders(user);
    EXPECT_GT(all.size(), 10);
    EXPECT_EQ(QSet(all.begin(), all.end()).size(), all.size());
}

TEST(UserFolders, environment_decidesWhereSettingsLie)
{
    const TestHome home;
    const ScopedVariable unset("XDG_CONFIG_HOME", std::nullopt);
    EXPECT_EQ(UserFolders::ofThisUser().home, home.path());
    EXPECT_EQ(UserFolders::ofThisUser().config, home.path(text(".config")));
    const ScopedVariable set("XDG_CONFIG_HOME", "/elsewhere");
    EXPECT_EQ(UserFolders::ofThisUser().config, text("/elsewhere"));
    const ScopedVariable relative("XDG_CONFIG_HOME", "config");
    EXPECT_EQ(UserFolders::ofThisUser().config, home.path(text(".config"))) << "a relative path is to be ignored";
}

TEST(PortInNote, firstLine_isThePort)
{
    EXPECT_EQ(portInNote("42809\n/devtools/browser/2d84"), quint16(42809));
    EXPECT_EQ(portInNote("1\n"), quint16(1));
}

TEST(PortInNote, anythingElse_isNone)
{
    for (const char *note : {"", "\n", "42809", "0\n/x", "65536\n/x", "-1\n/x", "4x\n/x", "\n42809\n"})
        EXPECT_EQ(portInNote(note), std::nullopt) << note;
    EXPECT_EQ(portInNote(QByteArray(1000000, '7') + '\n'), std::nullopt);
}

TEST(NotedPort, noteThatIsAPipe_isNoNote)
{
    const QTemporaryDir folder;
    const QString note = folder.filePath(text("DevToolsActivePort"));
    EXPECT_EQ(notedPort(folder.path()), std::nullopt);
    ASSERT_EQ(::mkfifo(note.toLocal8Bit().constData(), 0600), 0);
    EXPECT_EQ(notedPort(folder.path()), std::nullopt);
    ASSERT_TRUE(QFile::remove(note));
    ASSERT_TRUE(writeFileAtomically(note, "4711\n/devtools/browser/1").has_value());
    EXPECT_EQ(notedPort(folder.path()), quint16(4711));
}

} // namespace
} // namespace ostrel
