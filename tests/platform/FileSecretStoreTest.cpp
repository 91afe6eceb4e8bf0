#include "platform/secretfile/FileSecretStore.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "support/Printers.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ostrel;

namespace {

const QString service = QStringLiteral("service");

class SecretFile : public testing::Test
{
protected:
    QString file() const { return m_home.filePath(QStringLiteral("state/secrets.json")); }
    QString beside(const char *name) const { return m_home.filePath(QStringLiteral("state/") + QLatin1String(name)); }
    static mode_t mode(const QString &path)
    {
        struct stat info{};
        return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
    }
    static void setMode(const QString &path, mode_t mode)
    {
        ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), mode), 0);
    }
    std::optional<QString> read() { return m_store.read(service, secretAccount); }
    Result<> write(const char *value) { return m_store.write(service, secretAccount, QString::fromUtf8(value)); }

    QTemporaryDir m_home;
    FileSecretStore m_store{file()};
};

TEST_F(SecretFile, secret_isReadBackUpdatedAndRemoved)
{
    EXPECT_EQ(read(), std::nullopt);
    ASSERT_TRUE(write("one").has_value());
    EXPECT_EQ(read(), QStringLiteral("one"));
    ASSERT_TRUE(write("zwölf \"\n\\ 😀").has_value());
    EXPECT_EQ(read(), QStringLiteral("zwölf \"\n\\ 😀"));
    ASSERT_TRUE(m_store.remove(service, secretAccount).has_value());
    EXPECT_EQ(read(), std::nullopt);
}

TEST_F(SecretFile, services_andAccounts_areKeptApart)
{
    const QString other = QStringLiteral("other");
    ASSERT_TRUE(write("one").has_value());
    ASSERT_TRUE(m_store.write(service, other, QStringLiteral("two")).has_value());
    ASSERT_TRUE(m_store.write(other, secretAccount, QStringLiteral("three")).has_value());
    ASSERT_TRUE(m_store.remove(service, other).has_value());
    EXPECT_EQ(read(), QStringLiteral("one"));
    EXPECT_EQ(m_store.read(service, other), std::nullopt);
    EXPECT_EQ(m_store.read(other, secretAccount), QStringLiteral("three"));
}

TEST_F(SecretFile, anotherStoreOnTheFile_seesTheSecret)
{
    ASSERT_TRUE(write("one").has_value());
    EXPECT_EQ(FileSecretStore(file()).read(service, secretAccount), QStringLiteral("one"));
}

TEST_F(SecretFile, removingWhatIsNotThere_succeedsAndMakesNoFile)
{
    EXPECT_TRUE(m_store.remove(service, secretAccount).has_value());
    EXPECT_FALSE(QFileInfo::exists(beside("")));
    ASSERT_TRUE(write("one").has_value());
    EXPECT_TRUE(m_store.remove(QStringLiteral("other"), secretAccount).has_value());
    EXPECT_EQ(read(), QStringLiteral("one"));
}

TEST_F(SecretFile, removalThatIsRemembered_isNullInTheFileAndNoItem)
{
    ASSERT_TRUE(write("one").has_value());
    ASSERT_TRUE(m_store.put(service, secretAccount, {}).has_value());
    EXPECT_EQ(readFile(file()).value().simplified(), QByteArray(R"({ "service": { "default": null } })"));
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_EQ(m_store.entry(service, secretAccount).value(), SecretEntry{});
    ASSERT_TRUE(m_store.write(QStringLiteral("other"), secretAccount, QStringLiteral("two")).has_value());
    EXPECT_EQ(m_store.entry(service, secretAccount).value(), SecretEntry{}) << "it outlasts other changes";
    EXPECT_FALSE(QFileInfo::exists(beside("secrets.json.damaged"))) << "null is no damage";
    ASSERT_TRUE(write("again").has_value());
    EXPECT_EQ(read(), QStringLiteral("again"));
}

TEST_F(SecretFile, erasedEntry_isForgottenOnlyWhenItIsAsExpected)
{
    const SecretEntry one{.value = QStringLiteral("one")};
    ASSERT_TRUE(m_store.put(service, secretAccount, one).has_value());
    ASSERT_TRUE(m_store.erase(service, secretAccount, SecretEntry{}).has_value());
    ASSERT_TRUE(m_store.erase(service, secretAccount, SecretEntry{.value = QStringLiteral("two")}).has_value());
    EXPECT_EQ(m_store.entry(service, secretAccount).value(), one);
    ASSERT_TRUE(m_store.erase(service, secretAccount, one).has_value());
    EXPECT_EQ(m_store.entry(service, secretAccount).value(), std::nullopt);
}

TEST_F(SecretFile, newFile_isForItsUserAloneInAFolderOfTheSameKind)
{
    ASSERT_TRUE(write("one").has_value());
    EXPECT_EQ(mode(file()), 0600U);
    EXPECT_EQ(mode(beside("")), 0700U);
    EXPECT_EQ(mode(beside("secrets.json.lock")), 0600U);
}

TEST_F(SecretFile, fileThatOthersCanRead_isClosedToThemByReading)
{
    ASSERT_TRUE(write("one").has_value());
    setMode(file(), 0644);
    EXPECT_EQ(read(), QStringLiteral("one"));
    EXPECT_EQ(mode(file()), 0600U);
}

TEST_F(SecretFile, folderThatOthersCanEnter_isClosedToThemByWriting)
{
    ASSERT_TRUE(write("one").has_value());
    setMode(beside(""), 0755);
    setMode(file(), 0666);
    ASSERT_TRUE(write("two").has_value());
    EXPECT_EQ(mode(beside("")), 0700U);
    EXPECT_EQ(mode(file()), 0600U);
}

TEST_F(SecretFile, fileOfAnotherUser_isNeitherReadNorReplaced)
{
    if (::geteuid() == 0) {
        ASSERT_TRUE(write("theirs").has_value());
        ASSERT_EQ(::chown(QFile::encodeName(file()).constData(), 65534, 65534), 0);
    } else {
        // An ordinary user can't give a file away, but the system has some that are another's.
        ASSERT_TRUE(QDir().mkpath(beside("")));
        ASSERT_EQ(::symlink("/etc/hostname", QFile::encodeName(file()).constData()), 0);
    }
    const QByteArray before = readFile(file()).value();
    EXPECT_EQ(read(), std::nullopt);
    const auto written = write("ours");
    ASSERT_FALSE(written.has_value());
    EXPECT_TRUE(isFault(written.error(), Fault::PermissionDenied));
    EXPECT_EQ(readFile(file()), before);
}

TEST_F(SecretFile, damagedFile_readsAsEmptyAndIsKeptWhenWritten)
{
    for (const QByteArray &damage : {QByteArray(R"({"service":{"default":"on)"), QByteArray("[1]")}) {
        ASSERT_TRUE(writeFileAtomically(file(), damage).has_value());
        EXPECT_EQ(read(), std::nullopt);
        EXPECT_EQ(readFile(file()), damage) << "reading changes nothing";
    }
    ASSERT_TRUE(write("new").has_value());
    EXPECT_EQ(read(), QStringLiteral("new"));
    EXPECT_EQ(readFile(beside("secrets.json.damaged")), QByteArray("[1]"));
    EXPECT_EQ(mode(beside("secrets.json.damaged")), 0600U);
}

TEST_F(SecretFile, secondDamage_isKeptBesideTheFirst)
{
    for (const char *damage : {"first", "second"}) {
        ASSERT_TRUE(writeFileAtomically(file(), damage).has_value());
        ASSERT_TRUE(write("new").has_value());
    }
    EXPECT_EQ(readFile(beside("secrets.json.damaged")), QByteArray("first"));
    EXPECT_EQ(readFile(beside("secrets.json.damaged2")), QByteArray("second"));
}

TEST_F(SecretFile, partlyDamagedFile_keepsItsGoodSecretsAndACopy)
{
    const QByteArray partly = R"({"service":{"default":"one","x":1},"odd":2})";
    ASSERT_TRUE(writeFileAtomically(file(), partly).has_value());
    EXPECT_EQ(read(), QStringLiteral("one"));
    ASSERT_TRUE(m_store.write(QStringLiteral("other"), secretAccount, QStringLiteral("two")).has_value());
    EXPECT_EQ(read(), QStringLiteral("one"));
    EXPECT_EQ(readFile(beside("secrets.json.damaged")), partly);
}

TEST_F(SecretFile, emptyFile_isNoDamage)
{
    ASSERT_TRUE(writeFileAtomically(file(), {}).has_value());
    ASSERT_TRUE(write("one").has_value());
    EXPECT_FALSE(QFileInfo::exists(beside("secrets.json.damaged")));
}

TEST_F(SecretFile, folderInItsPlace_refusesTheWriteAndStays)
{
    ASSERT_TRUE(QDir().mkpath(file() + QStringLiteral("/inside")));
    EXPECT_EQ(read(), std::nullopt);
    const auto written = write("one");
    ASSERT_FALSE(written.has_value());
    EXPECT_TRUE(isFault(written.error(), Fault::IsDirectory));
    EXPECT_TRUE(QFileInfo(file() + QStringLiteral("/inside")).isDir());
}

TEST_F(SecretFile, fileInPlaceOfItsFolder_refusesTheWrite)
{
    ASSERT_TRUE(writeFileAtomically(m_home.filePath(QStringLiteral("state")), "a file").has_value());
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_FALSE(write("one").has_value());
    EXPECT_EQ(readFile(m_home.filePath(QStringLiteral("state"))), QByteArray("a file"));
}

TEST_F(SecretFile, lockThatAnotherProgramKeeps_refusesTheWriteButNotTheRead)
{
    ASSERT_TRUE(write("one").has_value());
    const int lock = ::open(QFile::encodeName(beside("secrets.json.lock")).constData(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);
    FileSecretStore impatient(file(), std::chrono::milliseconds(20));
    EXPECT_FALSE(impatient.write(service, secretAccount, QStringLiteral("two")).has_value());
    EXPECT_FALSE(impatient.remove(service, secretAccount).has_value());
    EXPECT_EQ(impatient.read(service, secretAccount), QStringLiteral("one"));
    ::close(lock);
    EXPECT_TRUE(write("two").has_value());
}

constexpr int writers = 4;
constexpr int secretsEach = 25;

QString nameOf(int writer, int number)
{
    return QStringLiteral("%1-%2").arg(writer).arg(number);
}

bool writeMany(const QString &file, int writer)
{
    FileSecretStore store(file, std::chrono::minutes(1)); // the lock goes to whoever asks first, not in turns
    bool complete = true;
    for (int number = 0; number < secretsEach; ++number)
        complete = store.write(nameOf(writer, number), secretAccount, nameOf(number, writer)).has_value() && complete;
    return complete;
}

int countOfAll(FileSecretStore &store)
{
    int count = 0;
    for (int writer = 0; writer < writers; ++writer) {
        for (int number = 0; number < secretsEach; ++number)
            count += store.read(nameOf(writer, number), secretAccount) == nameOf(number, writer) ? 1 : 0;
    }
    return count;
}

TEST_F(SecretFile, processesThatWriteAtOnce_loseNothing)
{
    std::vector<pid_t> children;
    for (int writer = 0; writer < writers; ++writer) {
        const pid_t child = ::fork();
        if (child == 0)
            ::_exit(writeMany(file(), writer) ? 0 : 1);
        ASSERT_GT(child, 0);
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(countOfAll(m_store), writers * secretsEach);
}

TEST_F(SecretFile, threadsThatWriteAtOnce_loseNothing)
{
    {
        std::vector<std::jthread> threads;
        for (int writer = 0; writer < writers; ++writer)
            threads.emplace_back([this, writer] { EXPECT_TRUE(writeMany(file(), writer)); });
    }
    EXPECT_EQ(countOfAll(m_store), writers * secretsEach);
}

TEST_F(SecretFile, defaultFile_liesInTheStateFolder)
{
    EXPECT_EQ(FileSecretStore::defaultFile(), QDir::homePath() + QStringLiteral("/.ostrel/secrets.json"));
}

} // namespace
