#include "platform/secretservice/SecretServiceStore.h"

#include "base/Fault.h"
#include "support/Printers.h"
#include "support/ScopedVariable.h"
#include "support/SessionBus.h"
#include "support/TestKeyring.h"

#include <QElapsedTimer>

#include <gmock/gmock.h>

#include <thread>
#include <vector>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

const QString service = QStringLiteral("tamsk-ostrel-local-api");
const QString otherService = QStringLiteral("tamsk-ostrel-byok-google-vertex-api-key");

/// On a bus with nothing on it yet.
class KeyringBus : public testing::Test
{
protected:
    TestKeyring &startKeyring(TestKeyring::Collection collection = TestKeyring::Collection::Unlocked)
    {
        m_keyring.reset();
        m_keyring = std::make_unique<TestKeyring>(m_bus.environment(), collection);
        return *m_keyring;
    }
    std::optional<QString> read() { return m_store.read(service, secretAccount); }
    Result<> write(const QString &value) { return m_store.write(service, secretAccount, value); }
    Result<> remove() { return m_store.remove(service, secretAccount); }
    void waitFor(KeyringState state)
    {
        waitUntil(QStringLiteral("the keyring's state to change"), 10s, [&] { return m_store.state() == state; });
    }

    /// Whatever one asks of it, it says why it can't, and all of that together takes less than two deadlines.
    static void expectUnavailable(SecretServiceStore &store, KeyringState state)
    {
        QElapsedTimer elapsed;
        elapsed.start();
        for (const QString &name : {service, otherService, QStringLiteral("third")}) {
            const auto found = store.lookUp(name, secretAccount);
            ASSERT_FALSE(found.has_value());
            EXPECT_TRUE(isFault(found.error(), Fault::KeyringUnavailable))
                << found.error().localizedDescription.toStdString();
        }
        EXPECT_EQ(store.state(), state);
        EXPECT_FALSE(store.write(service, secretAccount, QStringLiteral("new")).has_value());
        EXPECT_FALSE(store.remove(service, secretAccount).has_value());
        EXPECT_EQ(store.state(), state);
        EXPECT_LT(elapsed.elapsed(), 2 * SecretServiceStore::defaultDeadline.count());
    }
    void expectUnavailable(KeyringState state) { expectUnavailable(m_store, state); }

    SessionBus m_bus;
    std::unique_ptr<TestKeyring> m_keyring;
    SecretServiceStore m_store;
};

class UnlockedKeyring : public KeyringBus
{
protected:
    UnlockedKeyring() { startKeyring(); }
};

TEST_F(UnlockedKeyring, secret_isReadBackUpdatedAndRemoved)
{
    EXPECT_EQ(m_store.state(), KeyringState::Ready);
    EXPECT_EQ(read(), std::nullopt);
    for (const QString &value : {QStringLiteral("one"), QStringLiteral("zwölf \"\n\\ 😀"), QString()}) {
        ASSERT_TRUE(write(value).has_value());
        EXPECT_EQ(read(), value);
    }
    ASSERT_TRUE(remove().has_value());
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_TRUE(remove().has_value()) << "one that is not there is removed already";
}

TEST_F(UnlockedKeyring, servicesAndAccounts_areKeptApart)
{
    ASSERT_TRUE(write(QStringLiteral("one")).has_value());
    ASSERT_TRUE(m_store.write(service, QStringLiteral("other"), QStringLiteral("two")).has_value());
    ASSERT_TRUE(m_store.write(otherService, secretAccount, QStringLiteral("three")).has_value());
    ASSERT_TRUE(m_store.remove(service, QStringLiteral("other")).has_value());
    EXPECT_EQ(read(), QStringLiteral("one"));
    EXPECT_EQ(m_store.read(service, QStringLiteral("other")), std::nullopt);
    EXPECT_EQ(m_store.read(otherService, secretAccount), QStringLiteral("three"));
}

TEST_F(UnlockedKeyring, writtenSecret_isReadBackByAnotherProgram)
{
    ASSERT_TRUE(write(QStringLiteral("first")).has_value());
    ASSERT_TRUE(write(QStringLiteral("seconds 😀")).has_value());
    EXPECT_EQ(m_keyring->item(service), QByteArray("seconds 😀"));
}

TEST_F(UnlockedKeyring, writtenSecret_isOneItemThatPeopleRecognise)
{
    ASSERT_TRUE(write(QStringLiteral("first")).has_value());
    ASSERT_TRUE(write(QStringLiteral("second")).has_value());
    const std::string description = m_keyring->description(service).toStdString();
    EXPECT_THAT(description, testing::HasSubstr("label = Tamsk Ostrel: token between the program and its observer"));
    EXPECT_THAT(description, testing::HasSubstr("schema = com.tamsk.ostrel.Secret"));
    EXPECT_THAT(description, testing::HasSubstr("attribute.account = default"));
    EXPECT_EQ(m_keyring->description(service).count("label = "), 1);
}

TEST_F(UnlockedKeyring, itemOfAnotherProgram_isNeitherReadNorRemoved)
{
    m_keyring->store(service, QStringLiteral("theirs"));
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_TRUE(remove().has_value());
    EXPECT_EQ(m_keyring->item(service), QByteArray("theirs"));
}

TEST_F(UnlockedKeyring, itemThatIsNotUtf8_countsAsNone)
{
    m_keyring->store(service, QStringLiteral("\\377\\376"),
                     {QStringLiteral("xdg:schema"), QStringLiteral("com.tamsk.ostrel.Secret")});
    const auto found = m_store.lookUp(service, secretAccount);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(*found, std::nullopt);
}

TEST_F(UnlockedKeyring, threadsThatUseItAtOnce_getTheirOwnAnswers)
{
    constexpr int threads = 4;
    constexpr int secretsEach = 10;
    {
        std::vector<std::jthread> workers;
        for (int thread = 0; thread < threads; ++thread) {
            workers.emplace_back([this, thread] {
                for (int number = 0; number < secretsEach; ++number) {
                    const QString name = QStringLiteral("%1-%2").arg(thread).arg(number);
                    EXPECT_TRUE(m_store.write(name, secretAccount, name).has_value());
                    EXPECT_EQ(m_store.read(name, secretAccount), name);
                }
            });
        }
    }
    EXPECT_EQ(m_store.read(QStringLiteral("3-9"), secretAccount), QStringLiteral("3-9"));
}

TEST_F(UnlockedKeyring, lockedMeanwhile_failsWithoutPrompting)
{
    ASSERT_TRUE(write(QStringLiteral("old")).has_value());
    m_keyring->lock();
    expectUnavailable(KeyringState::Locked);
    m_keyring->unlock();
    EXPECT_EQ(m_store.state(), KeyringState::Ready);
    EXPECT_EQ(read(), QStringLiteral("old")) << "nothing was changed";
}

TEST_F(UnlockedKeyring, lockedFromTheStart_failsWithoutPrompting)
{
    m_keyring->lock();
    SecretServiceStore fresh;
    expectUnavailable(fresh, KeyringState::Locked);
}

TEST_F(KeyringBus, keyringWithoutADefaultCollection_failsWithoutPrompting)
{
    startKeyring(TestKeyring::Collection::Missing);
    expectUnavailable(KeyringState::NoDefaultCollection);
}

TEST_F(KeyringBus, noKeyringOnTheBus_fails)
{
    expectUnavailable(KeyringState::NoService);
    startKeyring();
    EXPECT_EQ(m_store.state(), KeyringState::Ready);
    EXPECT_TRUE(write(QStringLiteral("one")).has_value());
}

TEST_F(UnlockedKeyring, stoppedKeyring_costsOneDeadlineAndIsUsedAgainWhenItGoesOn)
{
    ASSERT_TRUE(write(QStringLiteral("old")).has_value());
    m_keyring->daemon().freeze();
    expectUnavailable(KeyringState::ServiceSilent);
    m_keyring->daemon().thaw();
    waitFor(KeyringState::Ready);
    EXPECT_EQ(read(), QStringLiteral("old"));
    EXPECT_TRUE(write(QStringLiteral("new")).has_value());
}

TEST_F(UnlockedKeyring, keyringStoppedBeforeTheFirstCall_costsOneDeadline)
{
    m_keyring->daemon().freeze();
    expectUnavailable(KeyringState::ServiceSilent);
}

TEST_F(UnlockedKeyring, changeThatWasGivenUp_isNotMadeLater)
{
    m_keyring->daemon().freeze();
    EXPECT_FALSE(write(QStringLiteral("late")).has_value());
    m_keyring->daemon().thaw();
    waitFor(KeyringState::Ready);
    EXPECT_EQ(read(), std::nullopt);
}

TEST_F(UnlockedKeyring, removalThatWasGivenUp_isNotMadeLater)
{
    ASSERT_TRUE(write(QStringLiteral("kept")).has_value());
    m_keyring->daemon().freeze();
    EXPECT_FALSE(remove().has_value());
    m_keyring->daemon().thaw();
    waitFor(KeyringState::Ready);
    EXPECT_EQ(read(), QStringLiteral("kept"));
}

TEST_F(UnlockedKeyring, stoppedBus_costsOneDeadlineAndIsUsedAgainWhenItGoesOn)
{
    ASSERT_TRUE(write(QStringLiteral("old")).has_value());
    m_bus.process().freeze();
    expectUnavailable(KeyringState::BusSilent);
    m_bus.process().thaw();
    waitFor(KeyringState::Ready);
    EXPECT_EQ(read(), QStringLiteral("old"));
}

TEST_F(UnlockedKeyring, busStoppedBeforeTheFirstCall_costsOneDeadline)
{
    m_bus.process().freeze();
    expectUnavailable(KeyringState::BusSilent);
    m_bus.process().thaw();
    waitFor(KeyringState::Ready);
}

TEST_F(KeyringBus, noBus_fails)
{
    const ScopedVariable noFolder("XDG_RUNTIME_DIR", std::nullopt);
    const QByteArray noSocket = "unix:path=" + m_bus.path(QStringLiteral("no-such-socket")).toLatin1();
    for (const auto &address : {std::optional<QByteArray>(), std::optional<QByteArray>("disabled:"),
                                std::optional<QByteArray>("nonsense"), std::optional(noSocket)}) {
        const ScopedVariable variable("DBUS_SESSION_BUS_ADDRESS", address);
        SecretServiceStore store;
        expectUnavailable(store, KeyringState::NoBus);
    }
}

TEST_F(UnlockedKeyring, busThatIsNotNamed_isFoundInTheRuntimeFolder)
{
    const ScopedVariable address("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    SecretServiceStore store;
    EXPECT_EQ(store.state(), KeyringState::Ready);
}

TEST_F(UnlockedKeyring, keyringThatEnds_isMissedAndItsSuccessorIsUsed)
{
    ASSERT_TRUE(write(QStringLiteral("kept")).has_value());
    m_keyring->daemon().kill();
    expectUnavailable(KeyringState::NoService);
    startKeyring();
    EXPECT_EQ(m_store.state(), KeyringState::Ready);
    EXPECT_EQ(read(), QStringLiteral("kept"));
    EXPECT_TRUE(write(QStringLiteral("new")).has_value());
}

TEST_F(UnlockedKeyring, keyringThatEndsWhileItIsStopped_endsTheWaiting)
{
    m_keyring->daemon().freeze();
    EXPECT_EQ(m_store.state(), KeyringState::ServiceSilent);
    m_keyring->daemon().kill();
    waitFor(KeyringState::NoService);
}

TEST_F(UnlockedKeyring, busThatEnds_isMissedAndItsSuccessorIsUsed)
{
    ASSERT_TRUE(write(QStringLiteral("kept")).has_value());
    m_bus.process().kill();
    expectUnavailable(KeyringState::NoBus);
    m_bus.restart();
    startKeyring();
    waitFor(KeyringState::Ready);
    EXPECT_EQ(read(), QStringLiteral("kept"));
}

TEST_F(UnlockedKeyring, storeDestroyedWhileACallHangs_endsTheCall)
{
    for (TestProcess *stopped : {&m_keyring->daemon(), &m_bus.process()}) {
        auto store = std::make_unique<SecretServiceStore>(50ms);
        stopped->freeze();
        EXPECT_NE(store->state(), KeyringState::Ready);
        QElapsedTimer elapsed;
        elapsed.start();
        store.reset();
        EXPECT_LT(elapsed.elapsed(), 900) << "it ended by itself, else it would be left behind after a second";
        stopped->thaw();
    }
}

} // namespace
} // namespace ostrel
