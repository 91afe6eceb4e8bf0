#include "app/doctor/ShellWord.h"

#include "support/Printers.h"
#include "support/TestHome.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

TEST(ShellWord, plainPath_staysAsItIs)
{
    EXPECT_EQ(shellWord(QStringLiteral("/data/my-journal_1.0")), QStringLiteral("/data/my-journal_1.0"));
}

TEST(ShellWord, pathThatTheShellWouldTakeApart_isQuoted)
{
    EXPECT_EQ(shellWord(QStringLiteral("/data/my journal; rm")), QStringLiteral("'/data/my journal; rm'"));
    EXPECT_EQ(shellWord(QStringLiteral("/it's")), QStringLiteral("'/it'\\''s'"));
}

TEST(ShellWord, pathInTheHomeFolder_keepsItsTildeOutsideOfTheQuotes)
{
    const TestHome home;
    EXPECT_EQ(shellWord(home.path(QStringLiteral("journal"))), QStringLiteral("~/journal"));
    EXPECT_EQ(shellWord(home.path(QStringLiteral("my journal"))), QStringLiteral("~/'my journal'"));
    EXPECT_EQ(shownPath(home.path(QStringLiteral("my journal"))), QStringLiteral("~/my journal"));
}

} // namespace
