#include "app/popover/JournalRows.h"

#include <gmock/gmock.h>

using namespace ostrel;

namespace {

JournalEntry entry(const char *time, const char *text)
{
    return {.session = QStringLiteral("s"), .time = QString::fromUtf8(time), .text = QString::fromUtf8(text)};
}

JournalDay day(const char *dateKey, QList<JournalSession> sessions = {})
{
    const QString key = QString::fromUtf8(dateKey);
    return {.id = key, .dateKey = key, .sessions = std::move(sessions)};
}

JournalSession session(const char *startTime, QList<JournalEntry> entries = {})
{
    return {.id = QStringLiteral("s"), .startTime = QString::fromUtf8(startTime), .entries = std::move(entries)};
}

QList<JournalRow> rows(const QList<JournalDay> &days, const QSet<QString> &collapsed = {})
{
    return journalRows(days, collapsed, 2026);
}

TEST(JournalRows, aDay_isItsNameAndItsDate)
{
    const auto all = rows({day("2026-11-21")});
    ASSERT_EQ(all.size(), 1);
    EXPECT_EQ(all[0].key.kind, JournalRow::Kind::Day);
    EXPECT_EQ(all[0].dayName(), QStringLiteral("Saturday"));
    EXPECT_EQ(all[0].dayDate(), QStringLiteral("21 November"));
}

TEST(JournalRows, aDayOfAnotherYear_saysWhich)
{
    EXPECT_EQ(rows({day("2025-12-31")})[0].dayDate(), QStringLiteral("31 December 2025"));
}

TEST(JournalRows, aDayThatNoCalendarHas_isItsKey)
{
    const auto all = rows({day("9999-99-99")});
    EXPECT_EQ(all[0].dayName(), QStringLiteral("9999-99-99"));
    EXPECT_EQ(all[0].dayDate(), QString());
}

TEST(JournalRows, entries_haveTwelveHourTimesAndTheirWorkspaceApart)
{
    const auto all = rows({day("2026-11-21", {session("", {entry("00:05", "[GitHub] action: Reviewed it"),
                                                           entry("13:07:59", "Just text"), entry("25:00", "x")})})});
    ASSERT_EQ(all.size(), 5);
    EXPECT_EQ(all[2].displayTime(), QStringLiteral("12:05 AM"));
    EXPECT_EQ(all[2].workspace(), QStringLiteral("GitHub"));
    EXPECT_EQ(all[2].text(), QStringLiteral("Reviewed it"));
    EXPECT_EQ(all[3].displayTime(), QStringLiteral("1:07 PM"));
    EXPECT_EQ(all[3].workspace(), QString());
    EXPECT_EQ(all[3].text(), QStringLiteral("Just text"));
    EXPECT_EQ(all[4].displayTime(), QStringLiteral("25:00"));
}

TEST(JournalRows, aSession_showsTheTimeOfItsDateOrWhateverStandsThere)
{
    const auto all = rows({day("2026-11-21", {session("2026-11-21T09:02:11+05:30"), session("13:30"), session(""),
                                              session("in the morning")})});
    ASSERT_EQ(all.size(), 5);
    EXPECT_EQ(all[1].displayTime(), QStringLiteral("9:02 AM"));
    EXPECT_EQ(all[2].displayTime(), QStringLiteral("1:30 PM"));
    EXPECT_EQ(all[3].displayTime(), QString());
    EXPECT_EQ(all[4].displayTime(), QStringLiteral("in the morning"));
}

TEST(JournalRows, aCollapsedDay_isItsNameAlone)
{
    const QList days{day("2026-11-21", {session("", {entry("09:00", "a")})}),
                     day("2026-11-20", {session("", {entry("09:00", "b")})})};
    const auto all = rows(days, {QStringLiteral("2026-11-21")});
    ASSERT_EQ(all.size(), 4);
    EXPECT_TRUE(all[0].collapsed);
    EXPECT_EQ(all[1].key.kind, JournalRow::Kind::Day);
    EXPECT_FALSE(all[1].collapsed);
    EXPECT_EQ(all[3].text(), QStringLiteral("b"));
}

TEST(JournalRows, equalEntries_haveKeysOfTheirOwn)
{
    const auto all = rows({day("2026-11-21", {session("", {entry("09:00", "a"), entry("09:00", "a")}),
                                              session("", {entry("09:00", "a")})}),
                           day("2026-11-20", {session("", {entry("09:00", "a")})})});
    QSet<JournalRow::Key> keys;
    for (const JournalRow &row : all)
        keys.insert(row.key);
    EXPECT_EQ(keys.size(), all.size());
}

TEST(JournalRows, textsAreShared_withTheJournal)
{
    const QList days{day("2026-11-21", {session("", {entry("09:00", "[Editor] Wrote it")})})};
    const auto all = rows(days);
    ASSERT_EQ(all.size(), 3);
    EXPECT_EQ(all[2].key.text.constData(), days[0].sessions[0].entries[0].text.constData());
}

} // namespace
