#include "CommandFixture.h"

#include <gmock/gmock.h>

using namespace ostrel;
using testing::HasSubstr;

namespace {

class AutostartCommand : public CommandFixture
{
protected:
    CommandResult autostart(const char *action)
    {
        return run({QStringLiteral("autostart"), QString::fromLatin1(action)});
    }
};

TEST_F(AutostartCommand, onAndOff_turnItWithoutAWord)
{
    const CommandResult on = autostart("on");
    EXPECT_EQ(on.status, 0);
    EXPECT_EQ(on.output + on.messages, QString());
    EXPECT_TRUE(m_autostart.on);
    EXPECT_EQ(autostart("off").status, 0);
    EXPECT_EQ(m_autostart.turns, (QList{true, false}));
}

TEST_F(AutostartCommand, status_saysWhichItIs)
{
    EXPECT_EQ(autostart("status").output, QStringLiteral("off\n"));
    m_autostart.on = true;
    EXPECT_EQ(autostart("status").output, QStringLiteral("on\n"));
    EXPECT_EQ(run({QStringLiteral("autostart"), QStringLiteral("status"), QStringLiteral("--json")}).output,
              QStringLiteral("{\n    \"autostart\": true\n}\n"));
    EXPECT_EQ(m_autostart.turns, QList<bool>());
}

TEST_F(AutostartCommand, folderThatCannotBeWritten_failsWithTheReason)
{
    m_autostart.isReadOnly = true;
    const CommandResult result = autostart("on");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages.toStdString(), HasSubstr("/home/me/.config"));
}

TEST_F(AutostartCommand, otherWords_areWrongUsage)
{
    for (const QStringList &words :
         {QStringList{}, {QStringLiteral("maybe")}, {QStringLiteral("on"), QStringLiteral("--json")}}) {
        const CommandResult result = run(QStringList(QStringLiteral("autostart")) + words);
        EXPECT_EQ(result.status, 2) << words.join(u' ').toStdString();
        EXPECT_EQ(result.output, QString());
    }
    EXPECT_EQ(m_autostart.turns, QList<bool>());
}

} // namespace
