#include "update/ArchiveUnpacker.h"
#include "base/Files.h"
#include "support/Printers.h"
#include "support/TarArchive.h"
#include "support/UpdateFeed.h"
#include "update/ArchiveCheck.h"
#include "update/UpdateFault.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gmock/gmock.h>

using namespace ostrel;

namespace {

class ArchiveUnpackerTest : public testing::Test
{
protected:
    ArchiveUnpackerTest() { QDir(m_folder.path()).mkdir(QStringLiteral("into")); }

    QString into(const QString &name = {}) const { return m_folder.filePath(QStringLiteral("into") + name); }
    Result<> unpackBytes(const QByteArray &bytes, const ArchiveLimits &limits = {})
    {
        const QString archive = m_folder.filePath(QStringLiteral("archive"));
        EXPECT_TRUE(writeFileAtomically(archive, bytes).has_value());
        return unpackArchive(archive, into(), limits);
    }
    Result<> unpack(const QList<TarEntry> &entries, const ArchiveLimits &limits = {})
    {
        return unpackBytes(tarArchive(entries), limits);
    }
    void expectFault(const Result<> &outcome, UpdateFault fault)
    {
        ASSERT_FALSE(outcome.has_value());
        EXPECT_TRUE(isUpdateFault(outcome.error(), fault)) << outcome.error().localizedDescription.toStdString();
    }
    /// What lies beside the folder that was unpacked into.
    QStringList outside() const
    {
        return QDir(m_folder.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    static mode_t modeOf(const QString &path)
    {
        struct stat info{};
        EXPECT_EQ(::lstat(QFile::encodeName(path).constData(), &info), 0) << path.toStdString();
        return info.st_mode & 07777;
    }

    QTemporaryDir m_folder;
};

TEST_F(ArchiveUnpackerTest, filesAndFolders_areUnpackedWithModesOfOurs)
{
    const auto outcome = unpack({{.name = "./", .mode = 0700, .type = AE_IFDIR},
                                 {.name = "./bin/", .mode = 0700, .type = AE_IFDIR},
                                 {.name = "./bin/ostrel", .content = "program", .mode = 0700},
                                 {.name = "share/deep/er/file", .content = QByteArray(200'000, 'x'), .mode = 0666},
                                 {.name = "empty/", .mode = 0777, .type = AE_IFDIR}});
    ASSERT_TRUE(outcome.has_value()) << outcome.error().localizedDescription.toStdString();
    EXPECT_EQ(readFile(into(QStringLiteral("/bin/ostrel"))).value(), QByteArray("program"));
    EXPECT_EQ(readFile(into(QStringLiteral("/share/deep/er/file"))).value().size(), 200'000);
    EXPECT_EQ(modeOf(into(QStringLiteral("/bin"))), 0755U);
    EXPECT_EQ(modeOf(into(QStringLiteral("/bin/ostrel"))), 0755U);
    EXPECT_EQ(modeOf(into(QStringLiteral("/share/deep/er/file"))), 0644U);
    EXPECT_EQ(modeOf(into(QStringLiteral("/empty"))), 0755U);
}

struct Malice {
    const char *name;
    TarEntry entry;
};

class MaliciousArchive : public ArchiveUnpackerTest, public testing::WithParamInterface<Malice>
{};

TEST_P(MaliciousArchive, isRefusedAndNothingLeavesTheFolder)
{
    expectFault(unpack({{.name = "bin/ostrel", .content = "program", .mode = 0755}, GetParam().entry}),
                UpdateFault::ArchiveUnsafe);
    EXPECT_EQ(outside(), QStringList({QStringLiteral("archive"), QStringLiteral("into")}));
}

INSTANTIATE_TEST_SUITE_P(
    All, MaliciousArchive,
    testing::Values(Malice{"pathTraversal", {.name = "../evil", .content = "x"}},
                    Malice{"traversalInTheMiddle", {.name = "bin/../../evil", .content = "x"}},
                    Malice{"traversalAtTheEnd", {.name = "bin/..", .type = AE_IFDIR}},
                    Malice{"absolutePath", {.name = "/tmp/ostrel-test-evil", .content = "x"}},
                    Malice{"doubleSlash", {.name = "bin//evil", .content = "x"}},
                    Malice{"backslash", {.name = "bin\\evil", .content = "x"}},
                    Malice{"lineBreak", {.name = "bin/e\nvil", .content = "x"}},
                    Malice{"foreignLetters", {.name = "bin/\xc3\xa4", .content = "x"}},
                    Malice{"symbolicLink", {.name = "link", .type = AE_IFLNK, .symbolicLink = "/etc/passwd"}},
                    Malice{"symbolicLinkWithin", {.name = "link", .type = AE_IFLNK, .symbolicLink = "bin/ostrel"}},
                    Malice{"hardLink", {.name = "link", .hardLink = "bin/ostrel"}},
                    Malice{"hardLinkOutwards", {.name = "link", .hardLink = "/etc/passwd"}},
                    Malice{"setUserId", {.name = "bin/evil", .content = "x", .mode = 04755}},
                    Malice{"setGroupId", {.name = "bin/evil", .content = "x", .mode = 02755}},
                    Malice{"setGroupIdFolder", {.name = "evil", .mode = 02755, .type = AE_IFDIR}},
                    Malice{"stickyFolder", {.name = "evil", .mode = 01777, .type = AE_IFDIR}},
                    Malice{"pipe", {.name = "evil", .type = AE_IFIFO}},
                    Malice{"device", {.name = "evil", .type = AE_IFCHR}},
                    Malice{"blockDevice", {.name = "evil", .type = AE_IFBLK}},
                    Malice{"foldersWithoutEnd", {.name = QByteArray("x/").repeated(100'000) + "evil", .content = "x"}},
                    Malice{"endlessName", {.name = QByteArray(600, 'x'), .content = "x"}},
                    Malice{"nameThatStandsTwice", {.name = "bin/ostrel", .content = "x"}},
                    Malice{"folderInAFilesPlace", {.name = "bin/ostrel/x", .content = "x"}}),
    [](const auto &test) { return std::string(test.param.name); });

TEST_F(ArchiveUnpackerTest, tooManyEntries_areRefused)
{
    QList<TarEntry> entries;
    for (int i = 0; i < 11; ++i)
        entries.append({.name = "file" + QByteArray::number(i)});
    expectFault(unpack(entries, {.bytes = 1000, .entries = 10}), UpdateFault::ArchiveUnsafe);
}

TEST_F(ArchiveUnpackerTest, tooManyFoldersThatOnlyStandInNames_areRefused)
{
    QList<TarEntry> entries;
    for (int i = 0; i < 3; ++i)
        entries.append({.name = QByteArray::number(i) + "/a/b/c/file"});
    expectFault(unpack(entries, {.bytes = 1000, .entries = 14}), UpdateFault::ArchiveUnsafe);
}

TEST_F(ArchiveUnpackerTest, archiveThatGrowsTooLarge_isRefusedOnTheWay)
{
    const QByteArray zeros(3'000'000, '\0');
    expectFault(unpack({{.name = "bomb", .content = zeros}}, {.bytes = 1'000'000, .entries = 10}),
                UpdateFault::ArchiveUnsafe);
    EXPECT_LE(QFileInfo(into(QStringLiteral("/bomb"))).size(), 1'000'000);
}

/// A header of the old GNU form for a file that is mostly holes: `realSize` bytes, of which one block is there.
QByteArray sparseFile(qint64 realSize)
{
    constexpr int blockSize = 512;
    QByteArray header(blockSize, '\0');
    const auto put = [&header](int at, const QByteArray &text) { header.replace(at, text.size(), text); };
    const auto octal = [](qint64 number) { return QByteArray::number(number, 8).rightJustified(11, '0'); };
    put(0, "hole");
    put(100, "0000644");
    put(108, "0000000");
    put(116, "0000000");
    put(124, octal(blockSize));
    put(136, octal(0));
    put(156, "S");
    put(257, "ustar  ");
    put(386, octal(realSize - blockSize));
    put(398, octal(blockSize));
    put(483, octal(realSize));
    put(148, "        ");
    int sum = 0;
    for (const char byte : header)
        sum += uchar(byte);
    put(148, QByteArray::number(sum, 8).rightJustified(6, '0') + '\0');
    return header + QByteArray(blockSize, 'x') + QByteArray(2 * blockSize, '\0');
}

TEST_F(ArchiveUnpackerTest, holesOfASparseFile_countAsMuchAsTheyTakeUpUnpacked)
{
    ASSERT_TRUE(unpackBytes(sparseFile(900'000), {.bytes = 1'000'000, .entries = 10}).has_value());
    EXPECT_EQ(QFileInfo(into(QStringLiteral("/hole"))).size(), 900'000);
    ASSERT_TRUE(QFile::remove(into(QStringLiteral("/hole"))));
    expectFault(unpackBytes(sparseFile(8'000'000'000), {.bytes = 1'000'000, .entries = 10}),
                UpdateFault::ArchiveUnsafe);
    EXPECT_LE(QFileInfo(into(QStringLiteral("/hole"))).size(), 1'000'000);
}

TEST_F(ArchiveUnpackerTest, whatIsNoArchive_isNotUnderstood)
{
    expectFault(unpackBytes("this is no archive at all, and long enough to be taken for something"),
                UpdateFault::ArchiveNotUnderstood);
}

TEST_F(ArchiveUnpackerTest, truncatedArchive_isNotUnderstood)
{
    QByteArray content;
    for (int i = 0; i < 20'000; ++i)
        content += QByteArray::number(i * 7919);
    const QByteArray whole = tarArchive({{.name = "file", .content = content}});
    expectFault(unpackBytes(whole.first(whole.size() / 2)), UpdateFault::ArchiveNotUnderstood);
}

class ArchiveCheckTest : public testing::Test
{
protected:
    ArchiveCheckTest() { write(m_content); }
    void write(const QByteArray &bytes) { ASSERT_TRUE(writeFileAtomically(path(), bytes).has_value()); }
    QString path() const { return m_folder.filePath(QStringLiteral("archive")); }
    /// As announced, and signed, for a version.
    Release release(const QString &version) const
    {
        const QByteArray feed =
            signedFeed(m_key, feedDocument({announcement(m_key, version, m_content, QStringLiteral("archive"))}));
        return readFeed(feed, m_key.publicKey(), QUrl(QStringLiteral("https://example.com/"))).value().releases.first();
    }
    void expectFault(const Release &release, UpdateFault fault)
    {
        const auto outcome = checkArchive(path(), release, m_key.publicKey());
        ASSERT_FALSE(outcome.has_value());
        EXPECT_TRUE(isUpdateFault(outcome.error(), fault)) << outcome.error().localizedDescription.toStdString();
    }

    const QByteArray m_content = "the new version";
    SigningKey m_key;
    QTemporaryDir m_folder;
    const Release m_release = release(QStringLiteral("0.2.0"));
};

TEST_F(ArchiveCheckTest, archiveAsAnnounced_isRight)
{
    EXPECT_TRUE(checkArchive(path(), m_release, m_key.publicKey()).has_value());
}

TEST_F(ArchiveCheckTest, oneOtherByte_isAWrongHash)
{
    write("the new versiom");
    expectFault(m_release, UpdateFault::ArchiveHashWrong);
}

TEST_F(ArchiveCheckTest, otherLength_isAWrongSize)
{
    write("the new versio");
    expectFault(m_release, UpdateFault::ArchiveSizeWrong);
}

TEST_F(ArchiveCheckTest, signatureForAnotherVersion_isWrong)
{
    Release relabelled = m_release;
    relabelled.version = Version::parse(QStringLiteral("0.3.0")).value();
    expectFault(relabelled, UpdateFault::ArchiveSignatureWrong);
}

TEST_F(ArchiveCheckTest, signatureForAnotherPlatform_isWrong)
{
    Release relabelled = m_release;
    relabelled.platform = QStringLiteral("linux-other");
    expectFault(relabelled, UpdateFault::ArchiveSignatureWrong);
}

TEST_F(ArchiveCheckTest, signatureOfAnotherKey_isWrong)
{
    m_key = SigningKey();
    expectFault(m_release, UpdateFault::ArchiveSignatureWrong);
}

TEST_F(ArchiveCheckTest, hashOfAnotherArchive_isNoLongerSigned)
{
    Release changed = m_release;
    changed.sha256 = sha256Of("evil");
    expectFault(changed, UpdateFault::ArchiveSignatureWrong);
}

} // namespace
