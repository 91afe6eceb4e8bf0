#include "journal/JournalRecords.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

QString shown(const char *time)
{
    return JournalEntry::formatDisplayTime(QString::fromUtf8(time));
}

std::optional<JournalWorkspace> workspaceOf(const char *text)
{
    return JournalEntry{.session = {}, .time = {}, .text = QString::fromUtf8(text)}.parsedWorkspace();
}

JournalWorkspace workspace(const char *label, const char *action)
{
    return {.label = QString::fromUtf8(label), .action = QString::fromUtf8(action)};
}

TEST(JournalEntry, itsIdentifier_isSessionTimeAndText)
{
    const JournalEntry entry{
        .session = QStringLiteral("s 1"), .time = QStringLiteral("9:04"), .text = QStringLiteral("a:b")};
    EXPECT_EQ(entry.id(), QStringLiteral("s 1:9:04:a:b"));
}

TEST(JournalEntryDisplayTime, midnight_isTwelveAm)
{
    EXPECT_EQ(shown("00:05"), QStringLiteral("12:05 AM"));
}

TEST(JournalEntryDisplayTime, afternoonWithSeconds_dropsSeconds)
{
    EXPECT_EQ(shown("13:07:59"), QStringLiteral("1:07 PM"));
}

TEST(JournalEntryDisplayTime, noon_isTwelvePm)
{
    EXPECT_EQ(shown("12:00"), QStringLiteral("12:00 PM"));
    EXPECT_EQ(shown("11:59"), QStringLiteral("11:59 AM"));
    EXPECT_EQ(shown("23:59"), QStringLiteral("11:59 PM"));
}

TEST(JournalEntryDisplayTime, outOfRange_isUnchanged)
{
    for (const char *time : {"25:00", "24:00", "10:60", "-1:00", "10:-1"})
        EXPECT_EQ(shown(time), QString::fromUtf8(time));
}

TEST(JournalEntryDisplayTime, noColon_isUnchanged)
{
    for (const char *time : {"1032", "", "10:", ":10", ":"})
        EXPECT_EQ(shown(time), QString::fromUtf8(time));
}

TEST(JournalEntryDisplayTime, notAnInteger_isUnchanged)
{
    for (const char *time : {"ten:05", "10: 5", " 10:05", "10:5x", "1e1:05", "99999999999999999999:05"})
        EXPECT_EQ(shown(time), QString::fromUtf8(time));
}

TEST(JournalEntryDisplayTime, emptyPieces_areSkipped)
{
    EXPECT_EQ(shown("::9:::5:"), QStringLiteral("9:05 AM"));
    EXPECT_EQ(shown("+7:+5"), QStringLiteral("7:05 AM"));
}

TEST(JournalEntryWorkspace, labelAndAction_areSplit)
{
    EXPECT_EQ(workspaceOf("[Editor] action: Wrote the report"), workspace("Editor", "Wrote the report"));
}

TEST(JournalEntryWorkspace, actionKeyword_isOptionalAndWithoutCase)
{
    EXPECT_EQ(workspaceOf("[a]b"), workspace("a", "b"));
    EXPECT_EQ(workspaceOf("[a] ACTION:b"), workspace("a", "b"));
    EXPECT_EQ(workspaceOf("[a] Action: action: b"), workspace("a", "action: b"));
    EXPECT_EQ(workspaceOf("[a] reaction: b"), workspace("a", "reaction: b"));
}

TEST(JournalEntryWorkspace, whiteSpace_isTrimmed)
{
    EXPECT_EQ(workspaceOf("[\u00a0 a b\u2028] \t action:\u3000c "), workspace("a b", "c"));
}

TEST(JournalEntryWorkspace, firstClosingBracket_endsTheLabel)
{
    EXPECT_EQ(workspaceOf("[[a] b] c"), workspace("[a", "b] c"));
}

TEST(JournalEntryWorkspace, otherForms_areNone)
{
    for (const char *text :
         {"", "a", "a [b] c", "[a", "[] action: b", "[ \t] b", "[a]", "[a] action:", "[a]  action: ", "]a["})
        EXPECT_EQ(workspaceOf(text), std::nullopt) << text;
}

} // namespace
} // namespace ostrel
