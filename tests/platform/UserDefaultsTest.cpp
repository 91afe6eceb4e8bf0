#include "platform/defaults/QSettingsUserDefaults.h"

#include "support/Printers.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

class UserDefaultsFile : public testing::Test
{
protected:
    QString file() const { return m_folder.filePath(QStringLiteral("a/b.ini")); }
    const QString m_key = QStringLiteral("journalCollapsedDays");
    QTemporaryDir m_folder;
};

TEST_F(UserDefaultsFile, absentKey_isNothing)
{
    const QSettingsUserDefaults defaults(file());
    EXPECT_EQ(defaults.stringList(m_key), std::nullopt);
    EXPECT_FALSE(QFileInfo::exists(file())) << "reading makes no file";
}

TEST_F(UserDefaultsFile, storedList_isThereForTheNextLaunch)
{
    for (const QStringList &list : {QStringList(), QStringList({QStringLiteral("one")}),
                                    QStringList({QStringLiteral("a, b"), QString(), QStringLiteral("ü \"q\" \n")})}) {
        QSettingsUserDefaults(file()).setStringList(m_key, list);
        EXPECT_EQ(QSettingsUserDefaults(file()).stringList(m_key), list);
    }
}

TEST_F(UserDefaultsFile, standardPlace_liesInTheConfigurationFolder)
{
    QSettingsUserDefaults().setStringList(m_key, {QStringLiteral("x")});
    EXPECT_TRUE(QFileInfo::exists(qEnvironmentVariable("HOME") + QStringLiteral("/.config/ostrel/ostrel.ini")));
}

} // namespace
