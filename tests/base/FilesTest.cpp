#include "base/Files.h"

#include "base/Fault.h"
#include "support/Printers.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace ostrel;

namespace {

class Files : public testing::Test
{
protected:
    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }
    QStringList names() const
    {
        return QDir(m_folder.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

    QTemporaryDir m_folder;
};

TEST_F(Files, write_newFile_isPrivateAndComplete)
{
    const QByteArray bytes(1'000'000, 'x');
    ASSERT_TRUE(writeFileAtomically(path("new/file"), bytes).has_value());
    EXPECT_EQ(readFile(path("new/file")).value(), bytes);
    struct stat info = {};
    ASSERT_EQ(::stat(qPrintable(path("new/file")), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
    EXPECT_EQ(names(), QStringList({QStringLiteral("new")})) << "no temporary file stays";
}

TEST_F(Files, writeNew_missingFile_isPrivateAndComplete)
{
    ASSERT_TRUE(writeNewFile(path("file"), "text").has_value());
    EXPECT_EQ(readFile(path("file")).value(), QByteArray("text"));
    struct stat info = {};
    ASSERT_EQ(::stat(qPrintable(path("file")), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(Files, writeNew_takenName_staysAsItIs)
{
    ASSERT_TRUE(writeNewFile(path("file"), "first").has_value());
    ASSERT_EQ(::symlink(qPrintable(path("nowhere")), qPrintable(path("link"))), 0);
    for (const char *name : {"file", "link"})
        EXPECT_FALSE(writeNewFile(path(name), "second").has_value()) << name;
    EXPECT_EQ(readFile(path("file")).value(), QByteArray("first"));
    EXPECT_EQ(names(), QStringList({QStringLiteral("file"), QStringLiteral("link")}));
}

TEST_F(Files, writeNew_missingFolder_isAnErrorAndMakesNothing)
{
    const auto written = writeNewFile(path("missing/file"), "text");
    ASSERT_FALSE(written.has_value());
    EXPECT_TRUE(isFault(written.error(), Fault::NoSuchFile));
    EXPECT_EQ(names(), QStringList());
}

TEST_F(Files, write_existingFile_isReplacedWhole)
{
    ASSERT_TRUE(writeFileAtomically(path("file"), "a longer text").has_value());
    ASSERT_TRUE(writeFileAtomically(path("file"), "short").has_value());
    EXPECT_EQ(readFile(path("file")).value(), QByteArray("short"));
}

TEST_F(Files, write_throughALink_keepsTheLink)
{
    ASSERT_TRUE(writeFileAtomically(path("target"), "old").has_value());
    ASSERT_EQ(::symlink(qPrintable(path("target")), qPrintable(path("link"))), 0);
    ASSERT_TRUE(writeFileAtomically(path("link"), "new").has_value());
    EXPECT_EQ(readFile(path("target")).value(), QByteArray("new"));
    EXPECT_TRUE(QFileInfo(path("link")).isSymLink());
}

TEST_F(Files, write_folderInItsPlace_failsAndLeavesIt)
{
    ASSERT_TRUE(QDir().mkpath(path("file")));
    const auto written = writeFileAtomically(path("file"), "x");
    ASSERT_FALSE(written.has_value());
    EXPECT_TRUE(isFault(written.error(), Fault::IsDirectory));
    EXPECT_EQ(names(), QStringList({QStringLiteral("file")}));
}

TEST_F(Files, write_fileInPlaceOfTheFolder_fails)
{
    ASSERT_TRUE(writeFileAtomically(path("folder"), "x").has_value());
    EXPECT_FALSE(writeFileAtomically(path("folder/file"), "x").has_value());
    EXPECT_EQ(readFile(path("folder")).value(), QByteArray("x"));
}

TEST_F(Files, write_thatCannotFinish_keepsTheOldFileAndLeavesNoOther)
{
    ASSERT_TRUE(writeFileAtomically(path("file"), "old").has_value());
    // A limit on the size of files stands in for the full disk: the write fails half way in the same manner.
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{.rlim_cur = 4096, .rlim_max = before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const auto written = writeFileAtomically(path("file"), QByteArray(100'000, 'x'));
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, previousHandler);

    EXPECT_FALSE(written.has_value());
    EXPECT_EQ(readFile(path("file")).value(), QByteArray("old"));
    EXPECT_EQ(names(), QStringList({QStringLiteral("file")}));
}

TEST_F(Files, read_missingOrFolder_isAnErrorThatNamesIt)
{
    const auto missing = readFile(path("missing"));
    ASSERT_FALSE(missing.has_value());
    EXPECT_TRUE(isFault(missing.error(), Fault::NoSuchFile));
    EXPECT_TRUE(missing.error().localizedDescription.contains(path("missing")));
    const auto folder = readFile(m_folder.path());
    ASSERT_FALSE(folder.has_value());
    EXPECT_TRUE(isFault(folder.error(), Fault::IsDirectory));
}

TEST_F(Files, readAndWrite_pipeOrDevice_failAtOnceAndLeaveIt)
{
    ASSERT_EQ(::mkfifo(qPrintable(path("pipe")), 0600), 0);
    ASSERT_EQ(::symlink("pipe", qPrintable(path("link"))), 0);
    for (const char *name : {"pipe", "link"}) {
        const auto bytes = readFile(path(name));
        ASSERT_FALSE(bytes.has_value()) << name;
        EXPECT_TRUE(isFault(bytes.error(), Fault::FileFailed)) << name;
        EXPECT_TRUE(bytes.error().localizedDescription.contains(QLatin1String("no regular file"))) << name;
        EXPECT_FALSE(writeFileAtomically(path(name), "x").has_value()) << name;
    }
    EXPECT_EQ(names().size(), 2);
    struct stat info = {};
    ASSERT_EQ(::stat(qPrintable(path("pipe")), &info), 0);
    EXPECT_TRUE(S_ISFIFO(info.st_mode));

    ASSERT_EQ(::symlink("/dev/zero", qPrintable(path("zero"))), 0);
    const auto endless = readFile(path("zero"));
    ASSERT_FALSE(endless.has_value());
    EXPECT_TRUE(isFault(endless.error(), Fault::FileFailed));
}

TEST_F(Files, read_linkToAFile_isItsContent)
{
    ASSERT_TRUE(writeFileAtomically(path("file"), "x").has_value());
    ASSERT_EQ(::symlink("file", qPrintable(path("link"))), 0);
    EXPECT_EQ(readFile(path("link")).value(), QByteArray("x"));
}

TEST_F(Files, read_fileOfTheKernelWithoutASize_isComplete)
{
    const auto status = readFile(QStringLiteral("/proc/self/status"));
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(status->contains("\nPid:\t" + QByteArray::number(::getpid())));
}

TEST_F(Files, read_tooLong_isAnErrorThatSaysSo)
{
    ASSERT_TRUE(writeFileAtomically(path("file"), "x").has_value());
    ASSERT_EQ(::truncate(qPrintable(path("file")), longestFile), 0);
    EXPECT_EQ(readFile(path("file")).value().size(), longestFile);
    ASSERT_EQ(::truncate(qPrintable(path("file")), longestFile + 1), 0);
    const auto bytes = readFile(path("file"));
    ASSERT_FALSE(bytes.has_value());
    EXPECT_TRUE(bytes.error().localizedDescription.contains(QLatin1String("longer than 67108864 bytes")));
}

TEST_F(Files, keepDamagedFile_severalTimes_keepsEachUnderAName)
{
    for (const char *text : {"first", "second"}) {
        ASSERT_TRUE(writeFileAtomically(path("file"), text).has_value());
        const auto kept = keepDamagedFile(path("file"));
        ASSERT_TRUE(kept.has_value());
        EXPECT_EQ(readFile(*kept).value(), QByteArray(text));
    }
    EXPECT_EQ(readFile(path("file.damaged")).value(), QByteArray("first"));
    EXPECT_EQ(readFile(path("file.damaged2")).value(), QByteArray("second"));
    EXPECT_EQ(readFile(path("file")).value(), QByteArray("second")) << "the file itself keeps its name";
}

TEST_F(Files, keepDamagedFile_missing_isAnError)
{
    EXPECT_FALSE(keepDamagedFile(path("missing")).has_value());
    EXPECT_EQ(names(), QStringList());
}

TEST_F(Files, isExecutableFile_onlyRegularFilesWithTheRight)
{
    ASSERT_TRUE(writeFileAtomically(path("file"), "#!/bin/sh\n").has_value());
    EXPECT_FALSE(isExecutableFile(path("file")));
    ASSERT_EQ(::chmod(qPrintable(path("file")), 0700), 0);
    EXPECT_TRUE(isExecutableFile(path("file")));
    EXPECT_FALSE(isExecutableFile(m_folder.path())) << "a folder has the bit too";
    EXPECT_FALSE(isExecutableFile(path("missing")));
}

} // namespace
