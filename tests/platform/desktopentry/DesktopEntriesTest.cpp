#include "platform/desktopentry/DesktopEntries.h"
#include "support/Printers.h"
#include "support/ScopedVariable.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

class DesktopEntriesTest : public testing::Test
{
protected:
    static void write(const QTemporaryDir &folder, const char *name, const QByteArray &body,
                      const QByteArray &type = "Application")
    {
        const QString path = folder.filePath(QString::fromUtf8(name));
        ASSERT_TRUE(QDir().mkpath(QFileInfo(path).path()));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("[Desktop Entry]\nType=" + type + "\n" + body);
    }

    void write(const char *name, const QByteArray &body) const { write(m_user, name, body); }

    ForegroundApplication find(const char *windowClass)
    {
        return m_entries.applicationFor(QString::fromUtf8(windowClass));
    }
    QString nameFor(const char *windowClass) { return find(windowClass).localizedName.value_or(QString()); }
    QString idFor(const char *windowClass) { return find(windowClass).bundleIdentifier.value_or(QString()); }

    QTemporaryDir m_user;
    QTemporaryDir m_system;
    std::chrono::steady_clock::time_point m_now;
    DesktopEntries m_entries{{m_user.path(), m_system.path()}, [this] { return m_now; }};
    ScopedVariable m_language{"LANGUAGE", QByteArray("C")};
};

TEST_F(DesktopEntriesTest, startupWmClass_isComparedWithoutCase)
{
    write("some-terminal.desktop", "Name=The Terminal\nStartupWMClass=XTerm\n");
    write("xterm.desktop", "Name=Another\n");
    EXPECT_EQ(nameFor("xTERM"), QStringLiteral("The Terminal"));
    EXPECT_EQ(idFor("XTerm"), QStringLiteral("some-terminal"));
}

TEST_F(DesktopEntriesTest, classAsId_comesBeforeItsLowerCase)
{
    write("Gimp.desktop", "Name=Upper\n");
    write("gimp.desktop", "Name=Lower\n");
    EXPECT_EQ(nameFor("Gimp"), QStringLiteral("Upper"));
    EXPECT_EQ(nameFor("GIMP"), QStringLiteral("Lower"));
}

TEST_F(DesktopEntriesTest, lastComponentOfReverseDnsId_isComparedWithoutCase)
{
    write("org.xfce.mousepad.desktop", "Name=Mousepad\n");
    EXPECT_EQ(nameFor("Mousepad"), QStringLiteral("Mousepad"));
    EXPECT_EQ(idFor("Mousepad"), QStringLiteral("org.xfce.mousepad"));
    EXPECT_EQ(idFor("org.xfce.mousepad"), QStringLiteral("org.xfce.mousepad"));
}

TEST_F(DesktopEntriesTest, noEntry_isTheClassWithoutIdentifier)
{
    const auto application = find("XTerm");
    EXPECT_EQ(application.localizedName, QStringLiteral("XTerm"));
    EXPECT_EQ(application.bundleIdentifier, std::nullopt);
    EXPECT_EQ(application.processIdentifier, 0);
}

TEST_F(DesktopEntriesTest, emptyClass_isNobody)
{
    write("org.example.a..desktop", "Name=Odd\n");
    write("b.desktop", "Name=Without class\n");
    EXPECT_EQ(find("").localizedName, std::nullopt);
    EXPECT_EQ(find("").bundleIdentifier, std::nullopt);
}

TEST_F(DesktopEntriesTest, name_isInTheUsersLanguage)
{
    write("files.desktop", "Name=Files\nName[de]=Dateien\nName[de_AT]=Akten\n");
    EXPECT_EQ(nameFor("files"), QStringLiteral("Files"));
    const ScopedVariable german("LANGUAGE", QByteArray("de_DE"));
    DesktopEntries entries({m_user.path()});
    EXPECT_EQ(entries.applicationFor(QStringLiteral("files")).localizedName, QStringLiteral("Dateien"));
}

TEST_F(DesktopEntriesTest, entryWithoutName_isNamedByItsClass)
{
    write("nameless.desktop", "Exec=x\n");
    EXPECT_EQ(nameFor("Nameless"), QStringLiteral("Nameless"));
    EXPECT_EQ(idFor("Nameless"), QStringLiteral("nameless"));
}

TEST_F(DesktopEntriesTest, programThatOneEntryStarts_isThatApplication)
{
    write("org.example.TextEditor.desktop", "Name=Text Editor\nExec=\"/usr/bin/example-text-editor\" %U\n");
    EXPECT_EQ(nameFor("example-text-editor"), QStringLiteral("Text Editor"));
    EXPECT_EQ(idFor("example-text-editor"), QStringLiteral("org.example.TextEditor"));
}

TEST_F(DesktopEntriesTest, programThatSeveralEntriesStart_isNoneOfThem)
{
    write("org.example.Writer.desktop", "Name=Writer\nExec=office %U\n");
    write("org.example.Tables.desktop", "Name=Tables\nExec=office\n");
    EXPECT_EQ(idFor("office"), QString());
}

TEST_F(DesktopEntriesTest, programThatMenusDoNotStart_isNotFoundByItsName)
{
    write("org.example.Handler.desktop", "Name=Handler\nExec=opener %u\nNoDisplay=true\n");
    EXPECT_EQ(idFor("opener"), QString());
}

TEST_F(DesktopEntriesTest, interpreterAndTerminal_areNotWhatTheyRun)
{
    write("org.example.Script.desktop", "Name=Script\nExec=python3 /opt/script.py %F\n");
    write("org.example.Lines.desktop", "Name=Lines\nExec=shell\nTerminal=true\n");
    EXPECT_EQ(idFor("python3"), QString());
    EXPECT_EQ(idFor("shell"), QString());
}

TEST_F(DesktopEntriesTest, commandThatCannotBeParsed_isNoProgram)
{
    write("org.example.Broken.desktop", "Name=Broken\nExec=\"broken\n");
    write("org.example.Empty.desktop", "Name=Empty\nExec=\n");
    EXPECT_EQ(nameFor("broken"), QStringLiteral("Broken")); // by its id
    EXPECT_EQ(idFor("\"broken"), QString());
}

TEST_F(DesktopEntriesTest, userFolder_winsOverSystemFolder)
{
    write(m_user, "editor.desktop", "Name=Mine\n");
    write(m_system, "editor.desktop", "Name=Theirs\n");
    write(m_system, "other.desktop", "Name=Other\n");
    EXPECT_EQ(nameFor("editor"), QStringLiteral("Mine"));
    EXPECT_EQ(nameFor("other"), QStringLiteral("Other"));
}

TEST_F(DesktopEntriesTest, hiddenEntry_hidesTheSystemsToo)
{
    write(m_user, "editor.desktop", "Name=Mine\nHidden=true\n");
    write(m_system, "editor.desktop", "Name=Theirs\n");
    EXPECT_EQ(find("editor").bundleIdentifier, std::nullopt);
}

TEST_F(DesktopEntriesTest, entryInMenus_winsOverOneThatIsNot)
{
    write("a-url-handler.desktop", "Name=Handler\nStartupWMClass=app\nNoDisplay=true\n");
    write("b.desktop", "Name=App\nStartupWMClass=App\n");
    EXPECT_EQ(nameFor("App"), QStringLiteral("App"));
    EXPECT_EQ(idFor("a-url-handler"), QStringLiteral("a-url-handler"));
}

TEST_F(DesktopEntriesTest, subfolder_isPartOfTheId)
{
    write("kde/viewer.desktop", "Name=Viewer\nStartupWMClass=viewer\n");
    EXPECT_EQ(idFor("Viewer"), QStringLiteral("kde-viewer"));
}

TEST_F(DesktopEntriesTest, filesThatAreNoApplications_areIgnored)
{
    write(m_user, "link.desktop", "Name=Link\nURL=http://a.example\n", "Link");
    write(m_user, "notes.txt", "Name=Notes\n");
    QFile broken(m_user.filePath(QStringLiteral("broken.desktop")));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("\xff\xfe no key file");
    for (const char *name : {"link", "notes", "broken"})
        EXPECT_EQ(find(name).bundleIdentifier, std::nullopt) << name;
}

TEST_F(DesktopEntriesTest, chromium_hasItsFamilysIdentifier)
{
    write("chromium.desktop", "Name=Chromium Web Browser\nStartupWMClass=chromium\n");
    EXPECT_EQ(nameFor("Chromium"), QStringLiteral("Chromium Web Browser"));
    EXPECT_EQ(idFor("Chromium"), QStringLiteral("com.google.Chrome"));
}

TEST_F(DesktopEntriesTest, newEntry_isSeen)
{
    EXPECT_EQ(idFor("late"), QString());
    write("late.desktop", "Name=Late\n");
    EXPECT_EQ(idFor("other"), QString());
    EXPECT_EQ(idFor("late"), QStringLiteral("late"));
    write("sub/later.desktop", "Name=Later\n");
    EXPECT_EQ(idFor("sub-later"), QStringLiteral("sub-later"));
    ASSERT_TRUE(QFile::remove(m_user.filePath(QStringLiteral("late.desktop"))));
    EXPECT_EQ(idFor("late"), QString());
}

TEST_F(DesktopEntriesTest, sameQuestionAgain_isAnsweredAnewAfterFiveSeconds)
{
    EXPECT_EQ(idFor("late"), QString());
    write("late.desktop", "Name=Late\n");
    m_now += 4'999ms;
    EXPECT_EQ(idFor("late"), QString());
    m_now += 1ms;
    EXPECT_EQ(idFor("late"), QStringLiteral("late"));
}

TEST_F(DesktopEntriesTest, folderThatAppearsLater_isSeen)
{
    QTemporaryDir root;
    DesktopEntries entries({root.filePath(QStringLiteral("applications"))});
    EXPECT_EQ(entries.applicationFor(QStringLiteral("b")).bundleIdentifier, std::nullopt);
    write(root, "applications/a.desktop", "Name=A\n");
    EXPECT_EQ(entries.applicationFor(QStringLiteral("a")).bundleIdentifier, QStringLiteral("a"));
}

TEST(DesktopEntriesFolders, environment_namesThemInOrder)
{
    const ScopedVariable home("XDG_DATA_HOME", QByteArray("/h"));
    const ScopedVariable system("XDG_DATA_DIRS", QByteArray("/a:/b/"));
    EXPECT_EQ(DesktopEntries::sessionFolders(),
              (QStringList{QStringLiteral("/h/applications"), QStringLiteral("/a/applications"),
                           QStringLiteral("/b/applications")}));
}

TEST(DesktopEntriesFolders, emptyEnvironment_hasTheStandardFolders)
{
    const ScopedVariable home("XDG_DATA_HOME", std::nullopt);
    const ScopedVariable system("XDG_DATA_DIRS", QByteArray());
    EXPECT_EQ(
        DesktopEntries::sessionFolders(),
        (QStringList{QDir::homePath() + QStringLiteral("/.local/share/applications"),
                     QStringLiteral("/usr/local/share/applications"), QStringLiteral("/usr/share/applications")}));
}

} // namespace
} // namespace ostrel
