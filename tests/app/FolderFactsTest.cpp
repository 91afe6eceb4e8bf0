#include "app/doctor/FolderFacts.h"

#include "support/Printers.h"
#include "support/TestHome.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <cerrno>

using namespace ostrel;

namespace {

QStringList everythingIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

TEST(FolderFacts, existingFolder_isTriedWithoutATrace)
{
    const TestHome home;
    const FolderFacts facts = readFolderFacts(QStringLiteral("~"));
    EXPECT_EQ(facts.path, home.path());
    EXPECT_TRUE(facts.exists);
    EXPECT_TRUE(facts.isOurs);
    EXPECT_NE(facts.writability, Writability::Refused);
    EXPECT_GT(facts.freeBytes, 0);
    EXPECT_EQ(everythingIn(home.path()), QStringList());
}

TEST(FolderFacts, missingFolder_isJudgedByTheOneAboveAndNotMade)
{
    const TestHome home;
    const FolderFacts facts = readFolderFacts(QStringLiteral("~/deep/below"));
    EXPECT_FALSE(facts.exists);
    EXPECT_EQ(facts.tried, home.path());
    EXPECT_NE(facts.writability, Writability::Refused);
    EXPECT_EQ(everythingIn(home.path()), QStringList());
}

TEST(FolderFacts, fileInThePlaceOfAFolder_isRefused)
{
    const TestHome home;
    QFile file(home.path(QStringLiteral("journal")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (const char *path : {"~/journal", "~/journal/below"}) {
        const FolderFacts facts = readFolderFacts(QString::fromLatin1(path));
        EXPECT_FALSE(facts.exists) << path;
        EXPECT_EQ(facts.writability, Writability::Refused) << path;
        EXPECT_EQ(facts.errorNumber, ENOTDIR) << path;
    }
}

TEST(FolderFacts, viewIntoTheKernel_isRefusedEvenForRoot)
{
    const FolderFacts facts = readFolderFacts(QStringLiteral("/proc/journal"));
    EXPECT_EQ(facts.writability, Writability::Refused);
    EXPECT_EQ(facts.tried, QStringLiteral("/proc"));
}

TEST(FolderFacts, folderWithoutPermission_isRefusedForItsOrdinaryOwner)
{
    QTemporaryDir folder;
    ASSERT_EQ(::chmod(QFile::encodeName(folder.path()).constData(), 0555), 0);
    const int status = inForkedChild([&folder] {
        if (!dropPrivileges())
            return 2;
        const FolderFacts facts = readFolderFacts(folder.path());
        return facts.exists && facts.writability == Writability::Refused && facts.errorNumber == EACCES ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
}

TEST(FolderFacts, emptyPath_isNowhere)
{
    EXPECT_EQ(readFolderFacts(QString()).path, QString());
    EXPECT_EQ(readFolderFacts(QString()).writability, Writability::Refused);
}

} // namespace
