#include "model/FileAccessPermission.h"
#include "support/Printers.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <future>
#include <sys/stat.h>

using namespace ostrel;
using FileAccessPermission::canWrite;

namespace {

class FileAccess : public testing::Test
{
protected:
    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }
    static QStringList entries(const QString &folder)
    {
        return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    static void write(const QString &file, const char *text)
    {
        QFile target(file);
        ASSERT_TRUE(target.open(QIODevice::WriteOnly));
        target.write(text);
    }

    QTemporaryDir m_folder;
};

TEST_F(FileAccess, existingFolder_isWritableAndKeepsNoProbe)
{
    EXPECT_TRUE(canWrite(m_folder.path()));
    EXPECT_EQ(entries(m_folder.path()), QStringList());
}

TEST_F(FileAccess, missingFolder_isCreatedWithItsParentsAndKeepsNoProbe)
{
    const QString deep = path("a/b/journal");
    EXPECT_TRUE(canWrite(deep));
    EXPECT_TRUE(QDir(deep).exists());
    EXPECT_EQ(entries(deep), QStringList());
}

TEST_F(FileAccess, pathBeginningWithTilde_liesInTheHomeFolder)
{
    EXPECT_TRUE(canWrite(QStringLiteral("~/ostrel/journal")));
    EXPECT_TRUE(QDir(QDir::homePath() + QStringLiteral("/ostrel/journal")).exists());
}

TEST_F(FileAccess, emptyPath_isNotWritable)
{
    EXPECT_FALSE(canWrite(QString()));
}

TEST_F(FileAccess, fileInThePlaceOfTheFolder_isNotWritable)
{
    write(path("taken"), "kept");
    EXPECT_FALSE(canWrite(path("taken")));
    EXPECT_FALSE(canWrite(path("taken/journal")));
}

TEST_F(FileAccess, folderInThePlaceOfTheProbe_isNotWritable)
{
    ASSERT_TRUE(QDir(m_folder.path()).mkdir(QStringLiteral(".ostrel-write-probe")));
    EXPECT_FALSE(canWrite(m_folder.path()));
}

TEST_F(FileAccess, folderOfTheKernel_isNotWritable)
{
    // Nobody can make a file there, not even root, so the test also holds where it runs as root.
    EXPECT_FALSE(canWrite(QStringLiteral("/proc")));
}

TEST_F(FileAccess, linkInThePlaceOfTheProbe_leavesWhatItPointsToAlone)
{
    write(path("letter"), "dear reader");
    ASSERT_TRUE(QFile::link(path("letter"), path(".ostrel-write-probe")));
    EXPECT_FALSE(canWrite(m_folder.path()));
    QFile letter(path("letter"));
    ASSERT_TRUE(letter.open(QIODevice::ReadOnly));
    EXPECT_EQ(letter.readAll(), QByteArray("dear reader"));
}

TEST_F(FileAccess, probesAtTheSameMoment_doNotDisturbEachOther)
{
    constexpr int probes = 3000;
    const auto refusals = [this] {
        int count = 0;
        for (int i = 0; i < probes; ++i)
            count += canWrite(m_folder.path()) ? 0 : 1;
        return count;
    };
    auto other = std::async(std::launch::async, refusals);
    EXPECT_EQ(refusals(), 0);
    EXPECT_EQ(other.get(), 0);
    EXPECT_EQ(entries(m_folder.path()), QStringList());
}

TEST_F(FileAccess, pipeInThePlaceOfTheProbe_doesNotBlock)
{
    ASSERT_EQ(::mkfifo(QFile::encodeName(path(".ostrel-write-probe")).constData(), 0600), 0);
    EXPECT_FALSE(canWrite(m_folder.path()));
}

} // namespace
