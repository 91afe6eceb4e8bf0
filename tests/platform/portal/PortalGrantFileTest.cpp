#include "platform/portal/PortalGrantFile.h"

#include "base/Files.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// The file of what was granted, in a folder of its own.
class GrantFile : public testing::Test
{
protected:
    void write(const QByteArray &bytes) const { ASSERT_TRUE(writeFileAtomically(m_path, bytes)); }
    void keep(const QStringList &monitors, const QString &token, const QString &usedToken = {}) const
    {
        m_file.keep({.monitors = monitors, .restoreToken = token}, usedToken);
    }

    QString tokenFor(const QStringList &monitors) const { return m_file.grantFor(monitors).restoreToken; }

    const QTemporaryDir m_folder;
    const QString m_path = m_folder.filePath(QStringLiteral("screen-sharing.json"));
    const PortalGrantFile m_file{m_path};
    const QStringList m_laptop{QStringLiteral("eDP-1")};
    const QStringList m_desk{QStringLiteral("DP-2"), QStringLiteral("eDP-1")};
    const QStringList m_nobodyTells;
};

TEST_F(GrantFile, none_grantsNothing)
{
    EXPECT_FALSE(m_file.isGranted());
    EXPECT_EQ(tokenFor(m_laptop), QString());
}

TEST_F(GrantFile, whatIsKept_isTheUsersAlone)
{
    keep(m_laptop, QStringLiteral("token"));
    EXPECT_EQ(QFile::permissions(m_path) & ~(QFile::ReadUser | QFile::WriteUser), QFile::ReadOwner | QFile::WriteOwner);
}

TEST_F(GrantFile, eachSetOfMonitors_hasItsOwnToken)
{
    keep(m_laptop, QStringLiteral("for the laptop"));
    keep(m_desk, QStringLiteral("for the desk"));
    EXPECT_EQ(tokenFor(m_laptop), QStringLiteral("for the laptop"));
    EXPECT_EQ(tokenFor(m_desk), QStringLiteral("for the desk"));
    EXPECT_EQ(tokenFor({QStringLiteral("DP-9")}), QString()) << "was never asked for";
}

TEST_F(GrantFile, newToken_takesThePlaceOfTheOneForTheSameMonitors)
{
    keep(m_laptop, QStringLiteral("first"));
    keep(m_laptop, QStringLiteral("second"), QStringLiteral("first"));
    EXPECT_EQ(tokenFor(m_laptop), QStringLiteral("second"));
}

TEST_F(GrantFile, tokenThatWasUsedWithOtherMonitors_isKeptNoLonger)
{
    keep(m_laptop, QStringLiteral("first"));
    keep(m_desk, QStringLiteral("second"), QStringLiteral("first"));
    EXPECT_EQ(tokenFor(m_laptop), QString());
}

TEST_F(GrantFile, grantWithoutAToken_counts)
{
    keep(m_nobodyTells, QString());
    EXPECT_TRUE(m_file.isGranted());
    EXPECT_EQ(tokenFor(m_nobodyTells), QString());
}

TEST_F(GrantFile, setsThatWereUsedLast_areKept)
{
    const auto set = [](qsizetype number) { return QStringList(QStringLiteral("DP-%1").arg(number)); };
    for (qsizetype i = 0; i < PortalGrantFile::mostGrants; ++i)
        keep(set(i), QStringLiteral("token %1").arg(i));
    keep(set(0), QStringLiteral("used again"), QStringLiteral("token 0"));
    keep(set(PortalGrantFile::mostGrants), QStringLiteral("one more"));
    EXPECT_EQ(tokenFor(set(0)), QStringLiteral("used again"));
    EXPECT_EQ(tokenFor(set(1)), QString());
    EXPECT_EQ(tokenFor(set(2)), QStringLiteral("token 2"));
    EXPECT_EQ(tokenFor(set(PortalGrantFile::mostGrants)), QStringLiteral("one more"));
}

TEST_F(GrantFile, fileOfBeforeMonitorsWereToldApart_isGoodForAnyUntilItsTokenIsUsed)
{
    write(R"({"restoreToken": "old"})");
    EXPECT_TRUE(m_file.isGranted());
    EXPECT_EQ(tokenFor(m_nobodyTells), QStringLiteral("old"));
    EXPECT_EQ(tokenFor(m_laptop), QStringLiteral("old"));
    keep(m_laptop, QStringLiteral("new"), QStringLiteral("old"));
    EXPECT_EQ(tokenFor(m_laptop), QStringLiteral("new"));
    EXPECT_EQ(tokenFor(m_desk), QString());
    EXPECT_FALSE(readFile(m_path)->contains("old"));
}

TEST_F(GrantFile, whereNobodyTellsMonitors_theNewestTokenIsTried)
{
    keep(m_desk, QStringLiteral("for the desk"));
    keep(m_laptop, QStringLiteral("for the laptop"));
    EXPECT_EQ(tokenFor(m_nobodyTells), QStringLiteral("for the laptop"));
    keep(m_nobodyTells, QStringLiteral("for whatever"));
    keep(m_desk, QStringLiteral("newer"));
    EXPECT_EQ(tokenFor(m_nobodyTells), QStringLiteral("for whatever"));
}

TEST_F(GrantFile, whatCannotBeUnderstood_grantsNothing)
{
    for (const char *bytes : {"", "{", "[]", R"({"restoreToken": 7})", R"({"grants": {}})", R"({"grants": [3, {}]})"}) {
        SCOPED_TRACE(bytes);
        write(bytes);
        EXPECT_FALSE(m_file.isGranted());
    }
}

TEST_F(GrantFile, grantWithinTheMonitorsThatAreThere_isTheNewestThatShowsNoOther)
{
    EXPECT_EQ(m_file.grantWithin(m_laptop).restoreToken, QString());
    keep(m_laptop, QStringLiteral("for the laptop"));
    keep(m_desk, QStringLiteral("for the desk"));
    EXPECT_EQ(m_file.grantWithin(m_laptop).restoreToken, QStringLiteral("for the laptop"));
    EXPECT_EQ(m_file.grantWithin(m_laptop).monitors, m_laptop);
    EXPECT_EQ(m_file.grantWithin(m_desk).restoreToken, QStringLiteral("for the desk"));
    const auto other = m_file.grantWithin({QStringLiteral("DP-9")});
    EXPECT_EQ(other.restoreToken, QStringLiteral("for the desk")) << "of none are all there";
    EXPECT_EQ(other.monitors, QStringList());
}

TEST_F(GrantFile, tokenForJustTheseMonitors_isNoOtherOne)
{
    EXPECT_FALSE(m_file.hasTokenForJust(m_desk));
    keep(m_nobodyTells, QStringLiteral("for any"));
    keep(m_laptop, QStringLiteral("for the laptop"));
    EXPECT_TRUE(m_file.hasTokenForJust(m_laptop));
    EXPECT_FALSE(m_file.hasTokenForJust(m_desk));
    keep(m_desk, QString());
    EXPECT_FALSE(m_file.hasTokenForJust(m_desk)) << "granted, and asked about every time";
}

TEST_F(GrantFile, refusal_takesAllBack)
{
    keep(m_laptop, QStringLiteral("for the laptop"));
    keep(m_desk, QStringLiteral("for the desk"));
    m_file.drop();
    EXPECT_FALSE(m_file.isGranted());
}

} // namespace
