#include "observer/SettingsOnDisk.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "observer/SettingsStore.h"
#include "support/Printers.h"
#include "support/TestHome.h"

#include <QFile>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

class OnDisk : public testing::Test
{
protected:
    static void write(const QString &file, const QByteArray &bytes)
    {
        ASSERT_TRUE(writeFileAtomically(file, bytes).has_value());
    }

    const TestHome m_home;
    const QString m_primary = SettingsStore::primaryFile();
    const QString m_legacy = SettingsStore::legacyFile();
};

TEST_F(OnDisk, noFile_isTheDefaultsAndNoFault)
{
    const SettingsOnDisk found = readSettingsOnDisk();
    EXPECT_EQ(found.settings, ObserverSettings::defaults());
    EXPECT_EQ(found.source, SettingsOnDisk::Source::Defaults);
    EXPECT_FALSE(found.primaryFault || found.legacyFault);
    EXPECT_FALSE(QFile::exists(m_home.path(QStringLiteral(".ostrel"))));
}

TEST_F(OnDisk, primaryFile_winsAndItsOldFoldersAreReadAsTodays)
{
    write(m_primary, R"({"localPort": 9001, "outputDirectory": "~/Moravel/journal"})");
    write(m_legacy, R"({"localPort": 9002})");
    const SettingsOnDisk found = readSettingsOnDisk();
    EXPECT_EQ(found.source, SettingsOnDisk::Source::PrimaryFile);
    EXPECT_EQ(found.settings.localPort, 9001);
    EXPECT_EQ(found.settings.outputDirectory, ObserverSettings::defaults().outputDirectory);
}

TEST_F(OnDisk, damagedFiles_fallBackInOrderAndSayWhy)
{
    write(m_primary, R"({"localPort": "soon"})");
    write(m_legacy, R"({"localPort": 9002})");
    SettingsOnDisk found = readSettingsOnDisk();
    EXPECT_EQ(found.source, SettingsOnDisk::Source::LegacyFile);
    EXPECT_EQ(found.settings.localPort, 9002);
    ASSERT_TRUE(found.primaryFault.has_value());
    EXPECT_TRUE(isFault(*found.primaryFault, Fault::UndecodableAnswer));
    write(m_legacy, "{");
    found = readSettingsOnDisk();
    EXPECT_EQ(found.source, SettingsOnDisk::Source::Defaults);
    EXPECT_TRUE(found.primaryFault && found.legacyFault);
}

TEST_F(OnDisk, secretInTheFile_staysThere)
{
    const QByteArray bytes = R"({"analysisApiToken": "abc"})";
    write(m_primary, bytes);
    readSettingsOnDisk();
    EXPECT_EQ(readFile(m_primary).value(), bytes);
}

} // namespace
