#include "TrayStory.h"

#include <QFile>
#include <QLocale>

using namespace ostrel;

namespace {

class TrayJournal : public TrayStory
{
protected:
    TrayJournal()
    {
        allowAccessibility();
        putFileManager();
    }

    /// What the desktop opens folders with says which one it was.
    void putFileManager()
    {
        const QString folder = m_tray.desktop().path(QStringLiteral("programs"));
        ASSERT_TRUE(QDir().mkpath(folder));
        const QString program = folder + QStringLiteral("/xdg-open");
        ASSERT_TRUE(writeFileAtomically(program, "#!/bin/sh\nprintf %s \"$1\" >\"$HOME/opened.part\"\n"
                                                 "mv \"$HOME/opened.part\" \"$HOME/opened\"\n")
                        .has_value());
        ASSERT_TRUE(QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        auto &environment = m_ostrel.environment();
        environment.insert(QStringLiteral("PATH"),
                           folder + QLatin1Char(':') + environment.value(QStringLiteral("PATH")));
    }

    static QString nameOf(const QDate &day) { return QLocale::c().dayName(day.dayOfWeek()) + QLatin1Char('*'); }

    const QDate m_today = QDate::currentDate();
};

TEST_F(TrayJournal, foldedDay_staysFoldedAfterARestart)
{
    writeJournal(m_today, "- [09:04] [GitHub] action: Reviewed a pull request\n");
    writeJournal(m_today.addDays(-1), "- [10:20] [Terminal] action: Ran the tests\n");
    open().press("Journal");
    panel().waitFor("*Reviewed a pull request*");
    panel().waitFor("*Ran the tests*");
    panel().press(nameOf(m_today.addDays(-1)));
    panel().waitUntilGone("*Ran the tests*");
    end();

    open().press("Journal");
    panel().waitFor("*Reviewed a pull request*");
    EXPECT_FALSE(panel().shows("*Ran the tests*"));
    panel().press(nameOf(m_today.addDays(-1)));
    panel().waitFor("*Ran the tests*");
    end();
}

TEST_F(TrayJournal, emptyJournal_saysSoAndItsFolderIsMadeAndOpened)
{
    open().press("Journal");
    panel().waitFor("No entries yet. Start a recording to begin today's journal.");
    panel().press("Open in Finder");
    const QString opened = m_ostrel.path(QStringLiteral("opened"));
    waitUntil(QStringLiteral("the folder to be opened"), patience, [&opened] { return QFile::exists(opened); });
    const QString folder = m_ostrel.path(QStringLiteral("ostrel/journal"));
    EXPECT_EQ(readFile(opened).value_or(QByteArray()), "file://" + folder.toUtf8());
    EXPECT_TRUE(QFile::exists(folder));
    end();
}

} // namespace
