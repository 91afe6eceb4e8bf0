#include "context/PrivacyRulesFile.h"

#include "base/Files.h"
#include "support/LogRecorder.h"
#include "support/Printers.h"
#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>

using namespace ostrel;

namespace {

class PrivacyRulesFileTest : public testing::Test
{
protected:
    void write(const char *text)
    {
        ASSERT_TRUE(writeFileAtomically(PrivacyRulesFile::primaryFile(), QByteArray(text)));
    }
    bool excludes(const char *windowClass)
    {
        return m_file.current().excludes(
            {.bundleIdentifier = {}, .windowClass = QString::fromLatin1(windowClass), .title = {}});
    }

    TestHome m_home;
    PrivacyRulesFile m_file;
    LogRecorder m_log{"com.tamsk.ostrel.ScreenCaptureRecorder"};
};

TEST_F(PrivacyRulesFileTest, withoutAFile_theBuiltInRulesHold)
{
    EXPECT_EQ(m_file.current(), PrivacyRules::builtIn());
    EXPECT_FALSE(QFile::exists(PrivacyRulesFile::primaryFile())) << "reading writes nothing";
}

TEST_F(PrivacyRulesFileTest, made_holdsTheBuiltInRulesForTheUserAlone)
{
    ASSERT_TRUE(PrivacyRulesFile::makeIfMissing());
    EXPECT_EQ(QFile::permissions(PrivacyRulesFile::primaryFile()) & ~(QFile::ReadUser | QFile::WriteUser),
              QFile::ReadOwner | QFile::WriteOwner);
    EXPECT_EQ(m_file.current(), PrivacyRules::builtIn());
    EXPECT_TRUE(m_log.take(QtWarningMsg).isEmpty());
}

TEST_F(PrivacyRulesFileTest, madeWhereThereIsOne_leavesItAsItIs)
{
    write(R"({"excludedWindowClasses": ["Mine"]})");
    ASSERT_TRUE(PrivacyRulesFile::makeIfMissing());
    EXPECT_TRUE(excludes("Mine"));
}

TEST_F(PrivacyRulesFileTest, changedFile_isReadAgain)
{
    write(R"({"excludedApplications": [], "excludedWindowClasses": ["One"]})");
    EXPECT_TRUE(excludes("One"));
    EXPECT_FALSE(excludes("KeePassXC")) << "the user has taken it off the list";
    write(R"({"excludedApplications": [], "excludedWindowClasses": ["Two"]})");
    EXPECT_FALSE(excludes("One"));
    EXPECT_TRUE(excludes("Two"));
    ASSERT_TRUE(QFile::remove(PrivacyRulesFile::primaryFile()));
    EXPECT_EQ(m_file.current(), PrivacyRules::builtIn());
}

TEST_F(PrivacyRulesFileTest, keyThatIsLeftOut_hasTheBuiltInList)
{
    write(R"({"excludedWindowClasses": ["Mine"], "unknown": 7})");
    const PrivacyRules rules = m_file.current();
    EXPECT_EQ(rules.windowClasses, QStringList{QStringLiteral("Mine")});
    EXPECT_EQ(rules.desktopIds, PrivacyRules::builtIn().desktopIds);
    EXPECT_EQ(rules.titles, PrivacyRules::builtIn().titles);
}

TEST_F(PrivacyRulesFileTest, brokenFile_keepsTheLastRulesAndTheBuiltInOnesAndSaysSoOnce)
{
    write(R"({"excludedApplications": [], "excludedWindowClasses": ["Mine"]})");
    EXPECT_FALSE(excludes("KeePassXC"));
    for (const char *broken :
         {"{\"excludedWindowClasses\": [", "[]", "{\"excludedWindowClasses\": \"KeePassXC\"}", ""}) {
        write(broken);
        EXPECT_TRUE(excludes("Mine")) << broken;
        EXPECT_TRUE(excludes("KeePassXC")) << broken;
        const QStringList said = m_log.take(QtWarningMsg);
        ASSERT_EQ(said.size(), 1) << broken;
        EXPECT_TRUE(said[0].contains(QStringLiteral("privacy.json is left aside"))) << said[0].toStdString();
    }
}

TEST_F(PrivacyRulesFileTest, fileThatIsAFolderOrTooLong_leavesTheBuiltInRules)
{
    write(QByteArray("[\"" + QByteArray(1'100'000, 'x') + "\"]").constData());
    EXPECT_EQ(m_file.current(), PrivacyRules::builtIn());
    ASSERT_TRUE(QFile::remove(PrivacyRulesFile::primaryFile()));
    ASSERT_TRUE(QDir().mkdir(PrivacyRulesFile::primaryFile()));
    EXPECT_EQ(m_file.current(), PrivacyRules::builtIn());
    EXPECT_EQ(m_log.take(QtWarningMsg).size(), 2);
}

TEST_F(PrivacyRulesFileTest, unusableEntries_costThemselvesAlone)
{
    write(R"({"excludedApplications": [7, "", null, "good"], "excludedTitlePatterns": ["(", "^Secret"]})");
    const PrivacyRules rules = m_file.current();
    EXPECT_EQ(rules.desktopIds, QStringList{QStringLiteral("good")});
    ASSERT_EQ(rules.titles.size(), 1);
    EXPECT_TRUE(rules.excludes({.bundleIdentifier = {}, .windowClass = {}, .title = QStringLiteral("Secret plan")}));
    EXPECT_EQ(m_log.take(QtWarningMsg).size(), 4);
}

TEST_F(PrivacyRulesFileTest, lookedAt_tellsWhatIsWrongAndLogsNothing)
{
    EXPECT_FALSE(PrivacyRulesFile::look().has_value()) << "there is no file";
    write(R"({"excludedWindowClasses": ["Mine"]})");
    ASSERT_TRUE(PrivacyRulesFile::look().value());
    EXPECT_EQ(PrivacyRulesFile::look()->value().complaints, QStringList());
    write(R"({"excludedApplications": ["good", 7], "excludedTitlePatterns": ["(\u001b"]})");
    const QStringList complaints = PrivacyRulesFile::look()->value().complaints;
    ASSERT_EQ(complaints.size(), 2);
    EXPECT_TRUE(complaints[0].startsWith(QStringLiteral("entry 2 of excludedApplications")));
    EXPECT_TRUE(
        complaints[1].startsWith(QStringLiteral("\"(\\u{1b}\" of excludedTitlePatterns is no regular expression: ")))
        << complaints[1].toStdString();
    write(R"({"excludedWindowClasses": "Mine"})");
    EXPECT_FALSE(PrivacyRulesFile::look().value());
    ASSERT_TRUE(QFile::remove(PrivacyRulesFile::primaryFile()));
    ASSERT_TRUE(QDir().mkdir(PrivacyRulesFile::primaryFile()));
    EXPECT_FALSE(PrivacyRulesFile::look().value());
    EXPECT_EQ(m_log.take(QtWarningMsg), QStringList());
}

TEST_F(PrivacyRulesFileTest, endlessListsAndEntries_areCut)
{
    QByteArray text = "{\"excludedApplications\": [\"" + QByteArray(1'001, 'x') + "\"";
    for (int i = 0; i < 2'000; ++i)
        text += ", \"app\"";
    write((text + "]}").constData());
    EXPECT_EQ(m_file.current().desktopIds.size(), 999);
    EXPECT_EQ(m_log.take(QtWarningMsg).size(), 2);
}

TEST_F(PrivacyRulesFileTest, made_isWhatTheObserverTakesForTheBuiltInRules)
{
    ASSERT_TRUE(PrivacyRulesFile::makeIfMissing());
    const auto made = QJsonDocument::fromJson(readFile(PrivacyRulesFile::primaryFile()).value_or(QByteArray()));
    const auto fixture =
        QJsonDocument::fromJson(readFile(QStringLiteral(OSTREL_FIXTURES "/privacy.json")).value_or(QByteArray()));
    EXPECT_FALSE(fixture.isNull());
    EXPECT_EQ(made, fixture);
}

TEST_F(PrivacyRulesFileTest, sites_areRead)
{
    write(R"({"excludedSites": ["bank.example", ""]})");
    EXPECT_EQ(m_file.current().sites, QStringList(QStringLiteral("bank.example")));
    EXPECT_EQ(m_log.take(QtWarningMsg).size(), 1) << "the entry that can't be used";
    write(R"({"excludedApplications": []})");
    EXPECT_EQ(m_file.current().sites, QStringList());
}

} // namespace
