#include "platform/autostart/XdgAutostart.h"

#include "base/Files.h"
#include "platform/autostart/AutostartEntry.h"
#include "support/ScopedVariable.h"
#include "support/TestProcess.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

class XdgAutostartTest : public testing::Test
{
protected:
    QString file() const { return m_folder.filePath(QStringLiteral("autostart/com.tamsk.ostrel.desktop")); }
    std::string text() const { return readFile(file()).value_or(QByteArray("(no file)")).toStdString(); }
    void write(const QByteArray &text) const { ASSERT_TRUE(writeFileAtomically(file(), text)); }
    /// What the desktops' own checker finds wrong with the file.
    QByteArray complaints() const
    {
        TestProcess checker({.program = QStringLiteral("desktop-file-validate"),
                             .arguments = {file()},
                             .environment = QProcessEnvironment::systemEnvironment(),
                             .logFile = m_folder.filePath(QStringLiteral("log"))});
        const int status = checker.waitForExit(10s);
        return checker.readAllOutput() + (status == 0 ? QByteArray() : "status " + QByteArray::number(status));
    }

    QTemporaryDir m_folder;
    ScopedVariable m_config{"XDG_CONFIG_HOME", m_folder.path().toLocal8Bit()};
    QString m_program = QStringLiteral("/opt/ostrel/bin/ostrel");
    XdgAutostart m_autostart{[this] { return m_program; }};
};

TEST_F(XdgAutostartTest, noFile_isOff)
{
    EXPECT_FALSE(m_autostart.isOn());
    EXPECT_TRUE(m_autostart.turn(false));
    EXPECT_FALSE(QFile::exists(file()));
}

TEST_F(XdgAutostartTest, turnedOn_validFileNamesTheProgram)
{
    ASSERT_TRUE(m_autostart.turn(true));
    EXPECT_TRUE(m_autostart.isOn());
    EXPECT_THAT(text(), HasSubstr("\nExec=\"/opt/ostrel/bin/ostrel\"\n"));
    EXPECT_THAT(text(), HasSubstr("\nTryExec=/opt/ostrel/bin/ostrel\n"));
    EXPECT_EQ(complaints(), QByteArray());
    EXPECT_EQ(QDir(m_folder.filePath(QStringLiteral("autostart"))).entryList(QDir::Files | QDir::Hidden).size(), 1);
}

TEST_F(XdgAutostartTest, turnedOff_ownFileIsRemoved)
{
    ASSERT_TRUE(m_autostart.turn(true));
    ASSERT_TRUE(m_autostart.turn(false));
    EXPECT_FALSE(m_autostart.isOn());
    EXPECT_FALSE(QFile::exists(file()));
}

TEST_F(XdgAutostartTest, programWithBlanksAndSigns_isQuotedAndValid)
{
    m_program = QStringLiteral("/home/me/my $apps/100%/o\"s`t\\rel/bin/ostrel");
    ASSERT_TRUE(m_autostart.turn(true));
    EXPECT_EQ(execValue(m_program), QByteArray(R"("/home/me/my \$apps/100%%/o\"s\`t\\rel/bin/ostrel")"));
    EXPECT_THAT(text(), HasSubstr(R"(Exec="/home/me/my \\$apps/100%%/o\\"s\\`t\\\\rel/bin/ostrel")"))
        << "a text of the file escapes each backslash once more";
    EXPECT_EQ(complaints(), QByteArray());
}

TEST_F(XdgAutostartTest, programThatHasMoved_isNamedAnewByTurningOn)
{
    ASSERT_TRUE(m_autostart.turn(true));
    m_program = QStringLiteral("/usr/bin/ostrel");
    ASSERT_TRUE(m_autostart.turn(true));
    EXPECT_THAT(text(), HasSubstr("Exec=\"/usr/bin/ostrel\"\n"));
}

TEST_F(XdgAutostartTest, hiddenByTheUser_isOffAndStaysSoUntilTurnedOn)
{
    write("[Desktop Entry]\nType=Application\nName=Mine\nExec=nice ostrel\nHidden=true\n");
    EXPECT_FALSE(m_autostart.isOn());
    const std::string before = text();
    ASSERT_TRUE(m_autostart.turn(false));
    EXPECT_EQ(text(), before);
    ASSERT_TRUE(m_autostart.turn(true));
    EXPECT_TRUE(m_autostart.isOn());
    EXPECT_THAT(text(), HasSubstr("Exec=nice ostrel\n"));
    EXPECT_THAT(text(), Not(HasSubstr("Hidden")));
}

TEST_F(XdgAutostartTest, switchedOffByGnome_isOffUntilTurnedOn)
{
    ASSERT_TRUE(m_autostart.turn(true));
    write(QByteArray::fromStdString(text()) + "X-GNOME-Autostart-enabled=false\n");
    EXPECT_FALSE(m_autostart.isOn());
    ASSERT_TRUE(m_autostart.turn(true));
    EXPECT_TRUE(m_autostart.isOn());
}

TEST_F(XdgAutostartTest, changedByTheUser_isSwitchedAndKept)
{
    const QByteArray mine = "# with a delay\n\n[Desktop Entry]\nType=Application\nName=Tamsk Ostrel\nName[de]=Mein "
                            "Journal\nExec=sh -c \"sleep 20; exec ostrel\"\nX-MATE-Autostart-Delay=20\n";
    write(mine);
    EXPECT_TRUE(m_autostart.isOn());
    ASSERT_TRUE(m_autostart.turn(false));
    EXPECT_FALSE(m_autostart.isOn());
    EXPECT_THAT(text(), HasSubstr("Hidden=true\n"));
    ASSERT_TRUE(m_autostart.turn(true));
    EXPECT_EQ(text(), mine.toStdString());
}

TEST_F(XdgAutostartTest, fileThatIsNoEntry_isOffAndSetAsideByTurningOn)
{
    write("nothing that a desktop understands");
    EXPECT_FALSE(m_autostart.isOn());
    ASSERT_TRUE(m_autostart.turn(true));
    EXPECT_EQ(readFile(file() + QStringLiteral(".damaged")), QByteArray("nothing that a desktop understands"));
    EXPECT_TRUE(m_autostart.isOn());
    EXPECT_EQ(complaints(), QByteArray());
}

TEST_F(XdgAutostartTest, entryWithoutAProgram_isOffAndReplacedByTurningOn)
{
    write("[Desktop Entry]\nType=Application\nName=Mine\n");
    EXPECT_FALSE(m_autostart.isOn());
    ASSERT_TRUE(m_autostart.turn(true));
    EXPECT_THAT(text(), HasSubstr("Exec=\"/opt/ostrel/bin/ostrel\"\n"));
}

TEST_F(XdgAutostartTest, folderThatCannotBeWritten_turningFailsWithItsName)
{
    // Of which not even root can make a folder.
    QFile inTheWay(m_folder.filePath(QStringLiteral("autostart")));
    ASSERT_TRUE(inTheWay.open(QIODevice::WriteOnly));
    const auto result = m_autostart.turn(true);
    ASSERT_FALSE(result);
    EXPECT_THAT(result.error().localizedDescription.toStdString(), HasSubstr("autostart"));
    EXPECT_FALSE(m_autostart.isOn());
}

} // namespace
