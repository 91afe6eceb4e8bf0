#include "platform/secretfile/FallbackSecretStore.h"

#include "base/Fault.h"
#include "base/FileLock.h"
#include "base/Files.h"
#include "platform/secretfile/FileSecretStore.h"
#include "support/FakeSecretStore.h"
#include "support/Printers.h"
#include "support/TestHome.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <vector>

using namespace ostrel;

namespace {

const QString service = QStringLiteral("service");

constexpr FakeSecretStore::Faults unavailable{.reads = true, .writes = true, .removals = true};

QString text(const char *words)
{
    return QString::fromUtf8(words);
}

class FallbackSecrets : public testing::Test
{
protected:
    std::optional<QString> read() { return m_secrets.read(service, secretAccount); }
    bool write(const char *value) { return m_secrets.write(service, secretAccount, text(value)).has_value(); }
    bool remove() { return m_secrets.remove(service, secretAccount).has_value(); }
    std::optional<QString> inKeyring() const { return m_keyring.item(service); }
    std::optional<SecretEntry> inFile() const { return m_file.entry(service, secretAccount).value(); }
    static std::optional<SecretEntry> value(const char *words) { return SecretEntry{.value = text(words)}; }

    const std::optional<SecretEntry> m_nothing;
    const std::optional<SecretEntry> m_removal = SecretEntry{};
    QTemporaryDir m_folder;
    FakeSecretStore m_keyring;
    FileSecretStore m_file{m_folder.filePath(QStringLiteral("state/secrets.json"))};
    FallbackSecretStore m_secrets{m_keyring, m_file};
};

TEST_F(FallbackSecrets, keyringThatWorks_isUsedAloneAndThereIsNoFile)
{
    ASSERT_TRUE(write("one"));
    EXPECT_EQ(inKeyring(), text("one"));
    EXPECT_EQ(read(), text("one"));
    ASSERT_TRUE(remove());
    EXPECT_EQ(inKeyring(), std::nullopt);
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_FALSE(QFileInfo::exists(m_file.path()));
}

TEST_F(FallbackSecrets, keyringThatFails_fileKeepsTheSecret)
{
    m_keyring.setFaults(unavailable);
    ASSERT_TRUE(write("one"));
    EXPECT_EQ(read(), text("one"));
    ASSERT_TRUE(write("two"));
    EXPECT_EQ(read(), text("two"));
    ASSERT_TRUE(remove());
    EXPECT_EQ(read(), std::nullopt);
}

TEST_F(FallbackSecrets, keyringThatCanBeReadButNotWritten_isRead)
{
    m_keyring.put(service, text("old"));
    m_keyring.setFaults({.writes = true});
    EXPECT_EQ(read(), text("old"));
    ASSERT_TRUE(write("new"));
    EXPECT_EQ(read(), text("new"));
}

TEST_F(FallbackSecrets, keyringThatCannotBeRead_isAnErrorUnlessTheFileKnows)
{
    m_keyring.setFaults(unavailable);
    EXPECT_FALSE(m_secrets.lookUp(service, secretAccount).has_value());
    ASSERT_TRUE(write("one"));
    EXPECT_TRUE(m_secrets.lookUp(service, secretAccount).has_value());
    ASSERT_TRUE(remove());
    EXPECT_EQ(m_secrets.lookUp(service, secretAccount).value(), std::nullopt) << "it is known to be removed";
}

TEST_F(FallbackSecrets, secretInTheFile_movesWhenItIsReadAndTheKeyringWorks)
{
    m_keyring.setFaults(unavailable);
    ASSERT_TRUE(write("one"));
    m_keyring.setFaults({});
    EXPECT_EQ(read(), text("one"));
    EXPECT_EQ(inKeyring(), text("one"));
    EXPECT_EQ(inFile(), m_nothing);
    EXPECT_EQ(read(), text("one"));
}

TEST_F(FallbackSecrets, secretInTheFile_isYoungerThanTheKeyringsAndWins)
{
    m_keyring.put(service, text("old"));
    m_keyring.setFaults({.writes = true});
    ASSERT_TRUE(write("new"));
    EXPECT_EQ(read(), text("new"));
    m_keyring.setFaults({});
    EXPECT_EQ(read(), text("new"));
    EXPECT_EQ(inKeyring(), text("new"));
    EXPECT_EQ(inFile(), m_nothing);
}

TEST_F(FallbackSecrets, secretWrittenOverOneThatWaits_replacesBoth)
{
    m_keyring.setFaults(unavailable);
    ASSERT_TRUE(write("waiting"));
    m_keyring.setFaults({});
    ASSERT_TRUE(write("newest"));
    EXPECT_EQ(inKeyring(), text("newest"));
    EXPECT_EQ(inFile(), m_nothing);
    EXPECT_EQ(read(), text("newest"));
}

TEST_F(FallbackSecrets, removalWhileTheKeyringIsLocked_waitsAndTheOldSecretDoesNotComeBack)
{
    m_keyring.put(service, text("old"));
    m_keyring.setFaults(unavailable);
    ASSERT_TRUE(remove());
    EXPECT_EQ(inFile(), m_removal);
    EXPECT_EQ(read(), std::nullopt);
    m_keyring.setFaults({.writes = true, .removals = true});
    EXPECT_EQ(read(), std::nullopt) << "it can be read again, but not yet be changed";
    m_keyring.setFaults({});
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_EQ(inKeyring(), std::nullopt);
    EXPECT_EQ(inFile(), m_nothing);
    EXPECT_EQ(read(), std::nullopt);
}

TEST_F(FallbackSecrets, secretWrittenAfterARemovalThatWaits_isKept)
{
    m_keyring.put(service, text("old"));
    m_keyring.setFaults(unavailable);
    ASSERT_TRUE(remove());
    ASSERT_TRUE(write("new"));
    EXPECT_EQ(read(), text("new"));
    m_keyring.setFaults({});
    EXPECT_EQ(read(), text("new"));
    EXPECT_EQ(inKeyring(), text("new"));
    EXPECT_EQ(inFile(), m_nothing);
}

TEST_F(FallbackSecrets, removalOfASecretThatWaits_removesItFromBoth)
{
    m_keyring.put(service, text("old"));
    m_keyring.setFaults(unavailable);
    ASSERT_TRUE(write("new"));
    m_keyring.setFaults({});
    ASSERT_TRUE(remove());
    EXPECT_EQ(inKeyring(), std::nullopt);
    EXPECT_EQ(inFile(), m_nothing);
}

TEST_F(FallbackSecrets, otherItems_areNotMoved)
{
    m_keyring.setFaults(unavailable);
    ASSERT_TRUE(write("one"));
    m_keyring.setFaults({});
    EXPECT_EQ(m_secrets.read(text("other"), secretAccount), std::nullopt);
    EXPECT_EQ(inFile(), value("one"));
    EXPECT_EQ(inKeyring(), std::nullopt);
}

TEST_F(FallbackSecrets, neitherStoreTakesIt_isAnErrorAndNothingHasChanged)
{
    ASSERT_TRUE(QDir().mkpath(m_file.path() + QStringLiteral("/a folder in its place")));
    m_keyring.put(service, text("old"));
    m_keyring.setFaults(unavailable);
    const auto written = m_secrets.write(service, secretAccount, text("new"));
    ASSERT_FALSE(written.has_value());
    EXPECT_TRUE(isFault(written.error(), Fault::IsDirectory));
    EXPECT_FALSE(remove());
    EXPECT_EQ(inKeyring(), text("old"));
}

TEST_F(FallbackSecrets, fileThatCannotBeRead_keyringIsReadButNotChanged)
{
    // Something may wait in there that would later be taken for the younger one.
    ASSERT_TRUE(QDir().mkpath(m_file.path()));
    m_keyring.put(service, text("old"));
    EXPECT_EQ(read(), text("old"));
    EXPECT_FALSE(write("new"));
    EXPECT_EQ(inKeyring(), text("old"));
}

TEST_F(FallbackSecrets, folderThatCannotBeMade_keyringIsUsedAllTheSame)
{
    ASSERT_TRUE(writeFileAtomically(m_folder.filePath(QStringLiteral("state")), "a file").has_value());
    EXPECT_FALSE(QFileInfo(m_file.path()).dir().exists());
    EXPECT_TRUE(write("one"));
    EXPECT_EQ(inKeyring(), text("one"));
    EXPECT_EQ(read(), text("one"));
}

TEST_F(FallbackSecrets, anotherProcessThatMoves_isNotOvertaken)
{
    m_keyring.setFaults(unavailable);
    ASSERT_TRUE(write("waiting"));
    m_keyring.setFaults({});
    {
        FileLock exchange(m_file.path() + QStringLiteral(".exchange.lock"));
        ASSERT_EQ(exchange.acquire({}), FileLock::Outcome::Acquired);
        ASSERT_TRUE(write("newest"));
        EXPECT_EQ(inKeyring(), std::nullopt) << "the other one may be telling it right now";
        EXPECT_EQ(inFile(), value("newest"));
        EXPECT_EQ(read(), text("newest"));
    }
    EXPECT_EQ(read(), text("newest"));
    EXPECT_EQ(inKeyring(), text("newest"));
}

/// A keyring that something happens to while it takes an item.
class InterruptedKeyring final : public SecretStore
{
public:
    InterruptedKeyring(SecretStore &keyring, std::function<void()> interruption)
        : m_keyring(keyring), m_interruption(std::move(interruption))
    {}

    Result<std::optional<QString>> lookUp(const QString &name, const QString &account) override
    {
        return m_keyring.lookUp(name, account);
    }
    Result<> write(const QString &name, const QString &account, const QString &value) override
    {
        const Result<> written = m_keyring.write(name, account, value);
        m_interruption();
        return written;
    }
    Result<> remove(const QString &name, const QString &account) override
    {
        const Result<> removed = m_keyring.remove(name, account);
        m_interruption();
        return removed;
    }

private:
    SecretStore &m_keyring;
    const std::function<void()> m_interruption;
};

TEST_F(FallbackSecrets, secretWrittenElsewhereWhileItMoves_isNotTakenOutOfTheFile)
{
    m_keyring.setFaults(unavailable);
    ASSERT_TRUE(write("moving"));
    m_keyring.setFaults({});
    InterruptedKeyring keyring(m_keyring,
                               [this] { ASSERT_TRUE(m_file.write(service, secretAccount, text("newest"))); });
    EXPECT_EQ(FallbackSecretStore(keyring, m_file).read(service, secretAccount), text("moving"));
    EXPECT_EQ(inFile(), value("newest"));
    EXPECT_EQ(read(), text("newest"));
    EXPECT_EQ(inKeyring(), text("newest"));
}

/// The keyring is a second file here, which outlives its processes as a real one does.
class SecretsOfProcesses : public FallbackSecrets
{
protected:
    std::optional<QString> inSharedKeyring() { return m_sharedKeyring.read(service, secretAccount); }
    QString keyringFile() const { return m_folder.filePath(QStringLiteral("keyring/items.json")); }

    FileSecretStore m_sharedKeyring{keyringFile(), std::chrono::minutes(1)};
};

TEST_F(SecretsOfProcesses, crashBetweenKeyringAndFile_leavesTheSecretInBoth)
{
    ASSERT_TRUE(m_file.write(service, secretAccount, text("one")).has_value());
    const int status = inForkedChild([this] {
        InterruptedKeyring keyring(m_sharedKeyring, [] { ::_exit(7); });
        return FallbackSecretStore(keyring, m_file).read(service, secretAccount) ? 0 : 1;
    });
    ASSERT_EQ(WEXITSTATUS(status), 7);
    EXPECT_EQ(inSharedKeyring(), text("one"));
    EXPECT_EQ(inFile(), value("one"));
    EXPECT_EQ(FallbackSecretStore(m_sharedKeyring, m_file).read(service, secretAccount), text("one"));
    EXPECT_EQ(inFile(), m_nothing);
}

TEST_F(SecretsOfProcesses, crashBetweenRemovalFromKeyringAndFile_itStaysRemoved)
{
    ASSERT_TRUE(m_sharedKeyring.write(service, secretAccount, text("old")).has_value());
    ASSERT_TRUE(m_file.put(service, secretAccount, {}).has_value());
    const int status = inForkedChild([this] {
        InterruptedKeyring keyring(m_sharedKeyring, [] { ::_exit(7); });
        return FallbackSecretStore(keyring, m_file).read(service, secretAccount) ? 0 : 1;
    });
    ASSERT_EQ(WEXITSTATUS(status), 7);
    EXPECT_EQ(FallbackSecretStore(m_sharedKeyring, m_file).read(service, secretAccount), std::nullopt);
    EXPECT_EQ(inFile(), m_nothing);
}

TEST_F(SecretsOfProcesses, processesThatMoveAtOnce_loseNothing)
{
    constexpr int processes = 4;
    constexpr int secrets = 20;
    const auto name = [](int number) { return QStringLiteral("secret-%1").arg(number); };
    for (int number = 0; number < secrets; ++number)
        ASSERT_TRUE(m_file.write(name(number), secretAccount, name(number)).has_value());
    std::vector<pid_t> children;
    for (int process = 0; process < processes; ++process) {
        const pid_t child = ::fork();
        if (child == 0) {
            FallbackSecretStore store(m_sharedKeyring, m_file);
            bool complete = true;
            for (int number = 0; number < secrets; ++number)
                complete = store.read(name(number), secretAccount) == name(number) && complete;
            ::_exit(complete ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "each saw every secret at all times";
    }
    FallbackSecretStore store(m_sharedKeyring, m_file);
    for (int number = 0; number < secrets; ++number) {
        EXPECT_EQ(store.read(name(number), secretAccount), name(number));
        EXPECT_EQ(m_sharedKeyring.read(name(number), secretAccount), name(number));
        EXPECT_EQ(m_file.entry(name(number), secretAccount).value(), m_nothing);
    }
}

TEST_F(SecretsOfProcesses, processesThatWriteAtOnce_leaveOneOfTheirLastValues)
{
    constexpr int processes = 3;
    constexpr int changes = 15;
    std::vector<pid_t> children;
    for (int process = 0; process < processes; ++process) {
        const pid_t child = ::fork();
        if (child == 0) {
            FallbackSecretStore store(m_sharedKeyring, m_file);
            bool complete = true;
            for (int change = 0; change < changes; ++change)
                complete =
                    store.write(service, secretAccount, QStringLiteral("%1-%2").arg(process).arg(change)) && complete;
            ::_exit(complete ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    const auto last = FallbackSecretStore(m_sharedKeyring, m_file).read(service, secretAccount);
    ASSERT_TRUE(last.has_value());
    EXPECT_TRUE(last->endsWith(QStringLiteral("-%1").arg(changes - 1))) << last->toStdString();
    EXPECT_EQ(inSharedKeyring(), last);
    EXPECT_EQ(inFile(), m_nothing);
}

} // namespace
