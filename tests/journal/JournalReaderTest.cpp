#include "journal/JournalReader.h"
#include "support/Printers.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ostrel {
namespace {

class JournalReaderTest : public testing::Test
{
protected:
    QString path(const char *name) const { return m_folder.filePath(QString::fromUtf8(name)); }

    void write(const char *name, const QByteArray &bytes) const
    {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }

    QStringList keys(qint64 limit = 7) const
    {
        QStringList keys;
        for (const JournalDay &day : JournalReader(m_folder.path()).readDays(limit))
            keys.append(day.dateKey);
        return keys;
    }

    /// The text of the only entry of a day with these bytes; absent when the day is.
    std::optional<QString> onlyText(const QByteArray &bytes) const
    {
        write("2024-05-31.md", bytes);
        const auto days = JournalReader(m_folder.path()).readDays(1);
        if (days.isEmpty())
            return std::nullopt;
        EXPECT_EQ(days[0].sessions.size(), 1);
        return days[0].sessions.value(0).entries.value(0).text;
    }

    QTemporaryDir m_folder;
};

QStringList list(std::initializer_list<const char *> texts)
{
    QStringList strings;
    for (const char *text : texts)
        strings.append(QString::fromUtf8(text));
    return strings;
}

TEST_F(JournalReaderTest, otherNames_areIgnored)
{
    for (const char *name : {"2024-5-31.md", "notes.md", "2024-05-30.MD", "2024-05-30.md.bak", "2024-05-30", ".md",
                             "2024-05-30.txt", "x2024-05-30.md", "2024-05-300.md", ".2024-05-30.md", "2024-05-30-.md"})
        write(name, "## Session 1\n");
    EXPECT_TRUE(keys().isEmpty());
}

TEST_F(JournalReaderTest, impossibleDate_isAccepted)
{
    write("9999-99-99.md", "");
    EXPECT_EQ(keys(), list({"9999-99-99"}));
}

TEST_F(JournalReaderTest, tenDays_givesTheGreatestSevenFirst)
{
    for (const char *name : {"2024-01-09.md", "2024-01-02.md", "2023-12-31.md", "2024-01-05.md", "2024-01-01.md",
                             "2024-01-08.md", "2024-01-03.md", "2024-01-07.md", "2024-01-04.md", "2024-01-06.md"})
        write(name, "");
    EXPECT_EQ(keys(),
              list({"2024-01-09", "2024-01-08", "2024-01-07", "2024-01-06", "2024-01-05", "2024-01-04", "2024-01-03"}));
}

TEST_F(JournalReaderTest, zeroOrNegativeLimit_isEmpty)
{
    write("2024-05-31.md", "## Session 1\n");
    EXPECT_TRUE(keys(0).isEmpty());
    EXPECT_TRUE(keys(-1).isEmpty());
    EXPECT_TRUE(keys(std::numeric_limits<qint64>::min()).isEmpty());
    EXPECT_EQ(keys(std::numeric_limits<qint64>::max()).size(), 1);
}

TEST_F(JournalReaderTest, dayWithoutSessions_isStillADay)
{
    write("2024-05-31.md", "# prose\n");
    EXPECT_EQ(JournalReader(m_folder.path()).readDays(7),
              (QList{JournalDay{
                  .id = QStringLiteral("2024-05-31"), .dateKey = QStringLiteral("2024-05-31"), .sessions = {}}}));
}

TEST_F(JournalReaderTest, missingOrUnusableFolder_isEmpty)
{
    EXPECT_TRUE(JournalReader(path("nowhere")).readDays(7).isEmpty());
    write("file", "");
    EXPECT_TRUE(JournalReader(path("file")).readDays(7).isEmpty());
    EXPECT_TRUE(JournalReader(QString()).readDays(7).isEmpty());
}

TEST_F(JournalReaderTest, unreadableDay_isSkippedAndNotMadeUpFor)
{
    write("2024-01-01.md", "");
    write("2024-01-02.md", "\xff");
    QDir(m_folder.path()).mkdir(QStringLiteral("2024-01-03.md"));
    ASSERT_EQ(::symlink("/nowhere/at/all", path("2024-01-04.md").toLocal8Bit().constData()), 0);
    EXPECT_EQ(keys(), list({"2024-01-01"}));
    EXPECT_TRUE(keys(3).isEmpty());
}

TEST_F(JournalReaderTest, namedPipe_isSkippedAtOnce)
{
    ASSERT_EQ(::mkfifo(path("2024-01-02.md").toLocal8Bit().constData(), 0600), 0);
    write("2024-01-01.md", "");
    EXPECT_EQ(keys(), list({"2024-01-01"}));
}

TEST_F(JournalReaderTest, linkToAFile_isRead)
{
    write("elsewhere", "## Session 1\n");
    ASSERT_EQ(::symlink(path("elsewhere").toLocal8Bit().constData(), path("2024-01-01.md").toLocal8Bit().constData()),
              0);
    EXPECT_EQ(keys(), list({"2024-01-01"}));
}

TEST_F(JournalReaderTest, subfolders_areNotSearched)
{
    QDir(m_folder.path()).mkpath(QStringLiteral("2024"));
    write("2024/2024-01-01.md", "");
    EXPECT_TRUE(keys().isEmpty());
}

TEST_F(JournalReaderTest, invalidUtf8_skipsTheDay)
{
    const QByteArray good = "## Session 1\n- [1] a";
    for (const char *bad :
         {"\x80", "\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x80", "\xff", "\xfe"}) {
        EXPECT_EQ(onlyText(good + bad), std::nullopt) << QByteArray(bad).toHex().toStdString();
        EXPECT_EQ(onlyText(bad + good), std::nullopt) << QByteArray(bad).toHex().toStdString();
    }
    EXPECT_EQ(onlyText(good + "\xc3\xa9\xf0\x9f\x98\x80"), QString::fromUtf8("a\u00e9\U0001F600"));
    EXPECT_EQ(onlyText("## Session 1\n- [1] a" + QByteArray(1, '\0') + "b")->size(), 3);
}

TEST_F(JournalReaderTest, byteOrderMark_isDropped)
{
    EXPECT_EQ(onlyText("\xef\xbb\xbf## Session 1\n- [1] a"), QStringLiteral("a"));
}

TEST_F(JournalReaderTest, windowsLineEnds_areLineEnds)
{
    EXPECT_EQ(onlyText("# 2024-05-31\r\n\r\n## Session 1\r\nstart_time: 1\r\n- [1] a <!-- key: x -->\r\n"),
              QStringLiteral("a"));
}

TEST_F(JournalReaderTest, tildeInTheFolder_isTheHome)
{
    const QDir home(QDir::homePath());
    ASSERT_TRUE(home.mkpath(QStringLiteral("journal-under-test")));
    QFile file(home.filePath(QStringLiteral("journal-under-test/2024-05-31.md")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(JournalReader(QStringLiteral("~/journal-under-test")).readDays(7).size(), 1);
}

TEST_F(JournalReaderTest, everyCall_readsAfresh)
{
    const JournalReader reader(m_folder.path());
    EXPECT_TRUE(reader.readDays(7).isEmpty());
    write("2024-05-31.md", "## Session 1\n");
    EXPECT_EQ(reader.readDays(7).value(0).sessions.size(), 1);
    write("2024-05-31.md", "## Session 1\n## Session 2\n");
    EXPECT_EQ(reader.readDays(7).value(0).sessions.size(), 2);
}

TEST_F(JournalReaderTest, oneDay_isFoundByItsKeyAlone)
{
    write("2024-05-31.md", "## Session 1\n");
    const JournalReader reader(m_folder.path());
    EXPECT_EQ(reader.readDay(QStringLiteral("2024-05-31"))->sessions.size(), 1);
    for (const char *key : {"2024-05-30", "", "2024-05-31.md", "../2024-05-31", "./2024-05-31", "2024-5-31", "*"})
        EXPECT_EQ(reader.readDay(QString::fromUtf8(key)), std::nullopt) << key;
}

TEST_F(JournalReaderTest, largeFile_isReadWhole)
{
    QByteArray bytes = "## Session 1\n";
    const QByteArray line = "- [10:32] [Editor] action: Wrote a part of the report <!-- key: 0123456789abcdef -->\n";
    while (bytes.size() < 1'000'000)
        bytes += line;
    write("2024-05-31.md", bytes);
    const auto days = JournalReader(m_folder.path()).readDays(7);
    ASSERT_EQ(days.size(), 1);
    ASSERT_EQ(days[0].sessions.size(), 1);
    EXPECT_EQ(days[0].sessions[0].entries.size(), bytes.size() / line.size());
    EXPECT_EQ(days[0].sessions[0].entries.last().text, QStringLiteral("[Editor] action: Wrote a part of the report"));
}

TEST_F(JournalReaderTest, oneEndlessLine_isReadInLinearTime)
{
    // Quadratic work over two million characters would run into the test's time-out.
    write("2024-05-31.md", "## Session 1\n- [1] a " + QByteArray("<!-- key:> ").repeated(200'000) + "-->");
    const auto days = JournalReader(m_folder.path()).readDays(7);
    ASSERT_EQ(days.size(), 1);
    EXPECT_EQ(days[0].sessions[0].entries.size(), 1);
}

} // namespace
} // namespace ostrel
