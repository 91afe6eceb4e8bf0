#include "journal/JournalDayParser.h"
#include "base/Text.h"
#include "support/Printers.h"

#include <QRegularExpression>

#include <gtest/gtest.h>
#include <random>

namespace ostrel {
namespace {

const QString dateKey = QStringLiteral("2024-05-31");

QList<JournalSession> sessionsOf(const QString &text)
{
    const JournalDay day = parseJournalDay(dateKey, text);
    EXPECT_EQ(day.id, dateKey);
    EXPECT_EQ(day.dateKey, dateKey);
    return day.sessions;
}

QList<JournalSession> sessionsOf(const char *text)
{
    return sessionsOf(QString::fromUtf8(text));
}

/// The entries of one line in a session "s".
QList<JournalEntry> entriesOf(const QString &line)
{
    const auto sessions = sessionsOf(QStringLiteral("## Session s\n") + line);
    EXPECT_EQ(sessions.size(), 1);
    return sessions.isEmpty() ? QList<JournalEntry>() : sessions.first().entries;
}

QList<JournalEntry> entriesOf(const char *line)
{
    return entriesOf(QString::fromUtf8(line));
}

JournalEntry entry(const char *session, const char *time, const char *text)
{
    const auto string = [](const char *utf8) { return QString::fromUtf8(utf8); };
    return {.session = string(session), .time = string(time), .text = string(text)};
}

TEST(JournalDayParser, wholeDay_isReadInOrder)
{
    const auto sessions = sessionsOf("# 2024-05-31\n\n## Session 7\nstart_time: 10:30\n\n- [10:32] a\n- [10:31] b\n"
                                     "## Session 6\nstart_time: 09:00\n- [09:01] c\n");
    ASSERT_EQ(sessions.size(), 2);
    EXPECT_EQ(sessions[0], (JournalSession{.id = QStringLiteral("7"),
                                           .startTime = QStringLiteral("10:30"),
                                           .entries = {entry("7", "10:32", "a"), entry("7", "10:31", "b")}}));
    EXPECT_EQ(sessions[1], (JournalSession{.id = QStringLiteral("6"),
                                           .startTime = QStringLiteral("09:00"),
                                           .entries = {entry("6", "09:01", "c")}}));
}

TEST(JournalDayParser, bulletWithKeyComment_yieldsTimeAndText)
{
    EXPECT_EQ(entriesOf("- [10:32] Wrote the report <!-- key: 1f00 -->"),
              QList{entry("s", "10:32", "Wrote the report")});
}

TEST(JournalDayParser, emptyBrackets_yieldNothing)
{
    EXPECT_TRUE(entriesOf("- [] Wrote the report").isEmpty());
}

TEST(JournalDayParser, timeWithoutText_yieldsNothing)
{
    EXPECT_TRUE(entriesOf("- [10:32]").isEmpty());
    EXPECT_TRUE(entriesOf("- [10:32] \t ").isEmpty());
    EXPECT_TRUE(entriesOf("- [10:32] <!-- key: 1 -->").isEmpty());
}

TEST(JournalDayParser, blankTime_isKeptUntrimmed)
{
    EXPECT_EQ(entriesOf("- [ 10:32 ] a"), QList{entry("s", " 10:32 ", "a")});
    EXPECT_EQ(entriesOf("- [ ] a"), QList{entry("s", " ", "a")});
}

TEST(JournalDayParser, entryBeforeAnySession_countsInTheFirst)
{
    const auto sessions = sessionsOf("- [10:32] early\nstart_time: 10:00\n## Session 1\n- [10:33] late\n");
    ASSERT_EQ(sessions.size(), 1);
    EXPECT_EQ(sessions[0],
              (JournalSession{.id = QStringLiteral("1"),
                              .startTime = QStringLiteral("10:00"),
                              .entries = {entry("session", "10:32", "early"), entry("1", "10:33", "late")}}));
}

TEST(JournalDayParser, noSession_givesNoSessions)
{
    EXPECT_TRUE(sessionsOf("").isEmpty());
    EXPECT_TRUE(sessionsOf("- [10:32] lost\nstart_time: 1\n").isEmpty());
}

TEST(JournalDayParser, startTimeAndEntries_areResetForTheNextSession)
{
    const auto sessions = sessionsOf("## Session 1\nstart_time: 9\n- [1] a\n## Session 2\n");
    ASSERT_EQ(sessions.size(), 2);
    EXPECT_TRUE(sessions[1].startTime.isEmpty());
    EXPECT_TRUE(sessions[1].entries.isEmpty());
}

TEST(JournalDayParser, headingWithNothing_hasAnEmptyId)
{
    for (const char *text : {"## Session ", "  ## Session \t ", "## Session \u00a0\n", "\u2003## Session \r\n"}) {
        const auto sessions = sessionsOf(text);
        ASSERT_EQ(sessions.size(), 1) << text;
        EXPECT_EQ(sessions[0].id, QString()) << text;
    }
    EXPECT_EQ(sessionsOf("## Session \n- [1] a").first().entries, QList{entry("", "1", "a")});
}

TEST(JournalDayParser, headingId_keepsLeadingBlanks)
{
    EXPECT_EQ(sessionsOf("## Session   a b  ").first().id, QStringLiteral("  a b"));
}

TEST(JournalDayParser, otherHeadings_areIgnored)
{
    for (const char *text : {"## Session", "##  Session 1", "### Session 1", "## session 1", "x ## Session 1",
                             "## Session\t1", "## Session\u00a01"})
        EXPECT_TRUE(sessionsOf(text).isEmpty()) << text;
}

TEST(JournalDayParser, lastStartTime_wins)
{
    EXPECT_EQ(sessionsOf("## Session 1\nstart_time: 1\n\tstart_time:2\n").first().startTime, QStringLiteral("2"));
    EXPECT_EQ(sessionsOf("## Session 1\nstart_time: 1\nstart_time:\n").first().startTime, QString());
}

TEST(JournalDayParser, repeatedStartTimeKeyword_isRemovedEverywhere)
{
    EXPECT_EQ(sessionsOf("## Session 1\nstart_time: 1start_time:2 start_time: \n").first().startTime,
              QStringLiteral("12"));
}

TEST(JournalDayParser, indentedBullet_isAnEntry)
{
    EXPECT_EQ(entriesOf(" \t\u3000- [1] a\u00a0"), QList{entry("s", "1", "a")});
}

TEST(JournalDayParser, malformedLines_areIgnored)
{
    for (const char *line : {"- [10:32 a", "-[1] a", "* [1] a", "-  [1] a", "[1] a", "prose ] - [", "-"})
        EXPECT_TRUE(entriesOf(line).isEmpty()) << line;
}

TEST(JournalDayParser, bracketsInText_areText)
{
    EXPECT_EQ(entriesOf("- [1] [Editor] action: a ] b"), QList{entry("s", "1", "[Editor] action: a ] b")});
    EXPECT_EQ(entriesOf("- [1]]"), QList{entry("s", "1", "]")});
}

TEST(JournalDayParser, equalEntries_shareAnIdAndBothStay)
{
    EXPECT_EQ(entriesOf("- [1] a\n- [1] a"), (QList{entry("s", "1", "a"), entry("s", "1", "a")}));
}

TEST(JournalDayParser, everyLineBreak_separates)
{
    for (const char *newline : {"\n", "\r\n", "\r", "\v", "\f", "\u0085", "\u2028", "\u2029"}) {
        const QString end = QString::fromUtf8(newline);
        const QString text =
            QStringLiteral("## Session 1") + end + QStringLiteral("- [1] a") + end + QStringLiteral("- [2] b") + end;
        const auto sessions = sessionsOf(text);
        ASSERT_EQ(sessions.size(), 1);
        EXPECT_EQ(sessions[0].id, QStringLiteral("1"));
        EXPECT_EQ(sessions[0].entries, (QList{entry("1", "1", "a"), entry("1", "2", "b")}));
    }
}

TEST(JournalDayParser, controlCharacters_separateNothing)
{
    EXPECT_EQ(entriesOf("- [1] a\u001c- [2] b"), QList{entry("s", "1", "a\u001c- [2] b")});
}

TEST(JournalDayParser, noFinalNewline_keepsTheLastLine)
{
    EXPECT_EQ(entriesOf("- [1] a\n- [2] b").size(), 2);
}

TEST(JournalDayParser, emojiAndCombiningText_isKept)
{
    EXPECT_EQ(entriesOf("- [1] caf\u0065\u0301 \U0001F600 <!--key:x-->"),
              QList{entry("s", "1", "caf\u0065\u0301 \U0001F600")});
}

TEST(JournalDayParser, keyComment_isCutOnlyAtTheEnd)
{
    EXPECT_EQ(entriesOf("- [1] a <!-- key: 1 --> b"), QList{entry("s", "1", "a <!-- key: 1 --> b")});
    EXPECT_EQ(entriesOf("- [1] a <!-- note: 1 -->"), QList{entry("s", "1", "a <!-- note: 1 -->")});
    EXPECT_EQ(entriesOf("- [1] a <!-- Key: 1 -->"), QList{entry("s", "1", "a <!-- Key: 1 -->")});
    EXPECT_EQ(entriesOf("- [1] a <!--key:--> \u3000"), QList{entry("s", "1", "a")});
    EXPECT_EQ(entriesOf("- [1] a <!-- key: x>y -->"), QList{entry("s", "1", "a <!-- key: x>y -->")});
    EXPECT_EQ(entriesOf("- [1] a <!-- key: 1 --> <!-- key: 2 -->"), QList{entry("s", "1", "a <!-- key: 1 -->")});
    EXPECT_EQ(entriesOf("- [1] a <!-- key: 1 <!-- key: 2 -->"), QList{entry("s", "1", "a")});
    EXPECT_EQ(entriesOf("- [1] a <!-- <!-- key: 2 -->"), QList{entry("s", "1", "a <!--")});
    EXPECT_EQ(entriesOf("- [1] a <!-- key:->"), QList{entry("s", "1", "a <!-- key:->")});
    EXPECT_EQ(entriesOf("- [1] a<!---->"), QList{entry("s", "1", "a<!---->")});
}

/// What the grammar says of the trailing comment, as the one line that it is.
QString withoutCommentByExpression(const QString &text)
{
    static const QRegularExpression comment(QStringLiteral("\\s*<!--\\s*key:[^>]*-->\\s*$"),
                                            QRegularExpression::UseUnicodePropertiesOption);
    QString rest = trimmedBlanks(text);
    if (const auto match = comment.match(rest); match.hasMatch())
        rest.remove(match.capturedStart(), match.capturedLength());
    return trimmedBlanks(rest);
}

TEST(JournalDayParser, randomComments_areCutAsTheExpressionSays)
{
    const QStringList pieces = {QStringLiteral("<!--"), QStringLiteral("-->"), QStringLiteral("key:"),
                                QStringLiteral(" "),    QStringLiteral("\t"),  QStringLiteral("\u00a0"),
                                QStringLiteral("a"),    QStringLiteral("-"),   QStringLiteral(">"),
                                QStringLiteral("<"),    QStringLiteral("]")};
    std::mt19937 random(20240531);
    int cut = 0;
    for (int round = 0; round < 20'000; ++round) {
        QString text = QStringLiteral("x");
        for (unsigned length = random() % 12; length > 0; --length)
            text += pieces[qsizetype(random() % unsigned(pieces.size()))];
        if (random() % 2 == 0)
            text += QStringLiteral("<!-- key:1-->");
        const QString expected = withoutCommentByExpression(text);
        cut += expected.size() < trimmedBlanks(text).size() ? 1 : 0;
        const auto entries = entriesOf(QStringLiteral("- [1] ") + text);
        ASSERT_EQ(entries.size(), 1) << text.toStdString();
        ASSERT_EQ(entries[0].text, expected) << text.toStdString();
    }
    EXPECT_GT(cut, 5'000);
}

} // namespace
} // namespace ostrel
