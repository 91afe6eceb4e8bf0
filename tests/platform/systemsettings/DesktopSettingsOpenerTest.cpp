#include "platform/systemsettings/DesktopSettingsOpener.h"

#include "base/Files.h"
#include "support/LogRecorder.h"
#include "support/Printers.h"
#include "support/RunTask.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// A session with a private PATH, on which fake programs note how they were started.
class SettingsOpener : public testing::Test
{
protected:
    SettingsOpener()
    {
        m_environment.insert(QStringLiteral("PATH"), m_folder.filePath(QStringLiteral("bin")));
        m_environment.insert(QStringLiteral("XDG_DATA_HOME"), m_folder.filePath(QStringLiteral("home-share")));
        m_environment.insert(QStringLiteral("XDG_DATA_DIRS"), m_folder.filePath(QStringLiteral("share")));
        m_environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":99"));
        m_environment.insert(QStringLiteral("NOTES"), m_notes);
        EXPECT_TRUE(writeFileAtomically(m_page, "<html></html>"));
    }

    void desktop(const char *name) { m_environment.insert(QStringLiteral("XDG_CURRENT_DESKTOP"), QLatin1String(name)); }
    void install(const char *program)
    {
        const QString path = m_folder.filePath(QStringLiteral("bin/") + QLatin1String(program));
        // Renamed when it is whole, for readers that look for it.
        ASSERT_TRUE(writeFileAtomically(path,
                                        "#!/bin/sh\n"
                                        "{ echo \"${0##*/} $*\"; read -r line; echo \"$line\"; } >\"$NOTES.new\"\n"
                                        "echo noise; echo noise >&2\n"
                                        "/bin/mv \"$NOTES.new\" \"$NOTES\"\n"));
        ASSERT_TRUE(QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner));
    }
    void installEntry(const char *name, const char *where = "share")
    {
        ASSERT_TRUE(writeFileAtomically(
            m_folder.filePath(QLatin1String(where) + QLatin1String("/applications/") + QLatin1String(name)),
            "[Desktop Entry]\n"));
    }
    DesktopSettingsOpener opener() const { return {m_environment, m_page}; }

    void expectNothingToShow()
    {
        LogRecorder log;
        opener().openAccessibility();
        EXPECT_EQ(log.take(QtInfoMsg), QStringList(QStringLiteral("nothing here can show ") + m_page));
    }

    /// What was started, with its arguments, and the line that it read from its standard input.
    QByteArray started()
    {
        EXPECT_TRUE(pumpUntil([this] { return QFileInfo::exists(m_notes); })) << "nothing was started";
        const QByteArray notes = readFile(m_notes).value_or(QByteArray());
        EXPECT_TRUE(notes.endsWith("\n\n")) << "its standard input is empty";
        QFile::remove(m_notes);
        return notes.trimmed();
    }
    QByteArray helpPage(const char *program = "xdg-open") const { return QByteArray(program) + ' ' + m_page.toUtf8(); }

    QTemporaryDir m_folder;
    const QString m_notes = m_folder.filePath(QStringLiteral("notes"));
    QString m_page = m_folder.filePath(QStringLiteral("doc/permissions.html"));
    QProcessEnvironment m_environment;
};

TEST_F(SettingsOpener, gnome_opensItsAccessibilityPanel)
{
    desktop("ubuntu:GNOME");
    install("gnome-control-center");
    installEntry("gnome-universal-access-panel.desktop");
    opener().openAccessibility();
    EXPECT_EQ(started(), "gnome-control-center universal-access");
}

TEST_F(SettingsOpener, kde_opensItsAccessibilityModuleByWhicheverProgramIsThere)
{
    desktop("KDE");
    installEntry("kcm_access.desktop", "home-share");
    for (const char *program : {"kcmshell5", "kcmshell6", "systemsettings5", "systemsettings"}) {
        install(program);
        opener().openAccessibility();
        EXPECT_EQ(started(), QByteArray(program) + " kcm_access");
    }
}

TEST_F(SettingsOpener, desktopsWithAProgramOfItsOwn_openIt)
{
    install("xfce4-accessibility-settings");
    install("mate-at-properties");
    install("cinnamon-settings");
    desktop("XFCE");
    opener().openAccessibility();
    EXPECT_EQ(started(), "xfce4-accessibility-settings");
    desktop("MATE");
    opener().openAccessibility();
    EXPECT_EQ(started(), "mate-at-properties");
    desktop("X-Cinnamon");
    opener().openAccessibility();
    EXPECT_EQ(started(), "cinnamon-settings accessibility");
}

TEST_F(SettingsOpener, screenRecording_opensThePrivacyPanelOfVersionsThatHaveOne)
{
    install("gnome-control-center");
    install("systemsettings");
    install("xdg-open");
    desktop("GNOME");
    opener().openScreenRecording();
    EXPECT_EQ(started(), helpPage()) << "this version has none";
    installEntry("gnome-privacy-panel.desktop");
    opener().openScreenRecording();
    EXPECT_EQ(started(), "gnome-control-center privacy");
    desktop("KDE");
    opener().openScreenRecording();
    EXPECT_EQ(started(), helpPage());
    installEntry("kcm_app-permissions.desktop");
    opener().openScreenRecording();
    EXPECT_EQ(started(), "systemsettings kcm_app-permissions");
}

TEST_F(SettingsOpener, files_opensTheHelpPageOnEveryDesktop)
{
    install("xdg-open");
    install("gnome-control-center");
    installEntry("gnome-privacy-panel.desktop");
    desktop("GNOME");
    opener().openFilesAndFolders();
    EXPECT_EQ(started(), helpPage());
}

TEST_F(SettingsOpener, otherDesktop_opensTheHelpPage)
{
    install("xdg-open");
    install("gnome-control-center");
    installEntry("gnome-universal-access-panel.desktop");
    for (const char *name : {"sway", "", "GNOME-Flashback-like"}) {
        desktop(name);
        opener().openAccessibility();
        EXPECT_EQ(started(), helpPage());
    }
}

TEST_F(SettingsOpener, programMissing_opensTheHelpPage)
{
    desktop("XFCE");
    install("xdg-open");
    opener().openAccessibility();
    EXPECT_EQ(started(), helpPage());
}

TEST_F(SettingsOpener, withoutXdgOpen_showsTheHelpPageByGio)
{
    install("gio");
    opener().openAccessibility();
    EXPECT_EQ(started(), "gio open " + m_page.toUtf8());
}

TEST_F(SettingsOpener, withoutADisplay_opensNothing)
{
    install("xdg-open");
    m_environment.remove(QStringLiteral("DISPLAY"));
    expectNothingToShow();
    m_environment.insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("wayland-1"));
    opener().openFilesAndFolders();
    EXPECT_EQ(started(), helpPage());
}

TEST_F(SettingsOpener, nothingInstalled_opensNothing)
{
    desktop("GNOME");
    expectNothingToShow();
}

TEST_F(SettingsOpener, withoutAPath_doesNotSearchThatOfTheProgramItself)
{
    m_environment.remove(QStringLiteral("PATH"));
    expectNothingToShow();
}

TEST_F(SettingsOpener, withoutAHelpPage_saysSoInTheLog)
{
    install("xdg-open");
    m_page = QStringLiteral("/nowhere/permissions.html");
    LogRecorder log;
    opener().openScreenRecording();
    EXPECT_EQ(log.take(QtWarningMsg),
              QStringList(QStringLiteral("there is no page that explains the grants at /nowhere/permissions.html")));
}

TEST(HelpPage, inTheBuildTree_isWhereAnInstalledProgramLooksForIt)
{
    const auto page = readFile(QStringLiteral(OSTREL_BUILD_DIR "/share/ostrel/doc/permissions.html"));
    ASSERT_TRUE(page.has_value());
    for (const char *title : {"Screen Recording", "File Access", "Accessibility"})
        EXPECT_TRUE(page->contains(title)) << title;
}

} // namespace
