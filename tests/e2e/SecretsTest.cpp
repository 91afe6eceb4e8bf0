#include "OstrelProgram.h"

#include "base/Files.h"
#include "support/Printers.h"
#include "support/SessionBus.h"
#include "support/TestKeyring.h"

#include <QElapsedTimer>
#include <QFileInfo>

#include <gmock/gmock.h>

using namespace ostrel;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

const QString localTokenService = QStringLiteral("tamsk-ostrel-local-api");
const QString vertexKeyService = QStringLiteral("tamsk-ostrel-byok-google-vertex-api-key");
const QStringList showSettings{QStringLiteral("settings"), QStringLiteral("show")};
const QStringList recordShortly{QStringLiteral("record"), QStringLiteral("--seconds"), QStringLiteral("3")};

/// The program on a display and a bus, whose keyring is the test's to start and to stop.
class SecretsEndToEnd : public testing::Test
{
protected:
    SecretsEndToEnd()
    {
        for (const char *name : {"DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"})
            m_ostrel.environment().insert(QLatin1String(name), m_bus.environment().value(QLatin1String(name)));
        m_ostrel.writeSettings(R"("byokGoogleVertexApiKey": "abc")");
    }

    void startKeyring() { m_keyring = std::make_unique<TestKeyring>(m_ostrel.environment()); }
    QByteArray file(const char *name) const
    {
        return readFile(m_ostrel.path(QStringLiteral(".ostrel/") + QLatin1String(name))).value_or(QByteArray());
    }
    /// Runs it to its end, which comes soon and in order, whatever hangs.
    OstrelProgram::Outcome run(const QStringList &arguments, std::chrono::milliseconds limit = 8s)
    {
        QElapsedTimer elapsed;
        elapsed.start();
        auto outcome = m_ostrel.run(arguments);
        EXPECT_LT(elapsed.elapsed(), limit.count());
        EXPECT_EQ(outcome.status, 0) << outcome.messages.toStdString();
        EXPECT_THAT(outcome.messages.toStdString(), Not(HasSubstr("Sanitizer")));
        return outcome;
    }
    void record() { run(recordShortly, 40s); }
    void expectSecretIsShownAsSet()
    {
        EXPECT_THAT(run(showSettings).output.toStdString(),
                    testing::ContainsRegex("byokGoogleVertexApiKey +<redacted>"));
    }

    VirtualDesktop m_desktop{{.size = {640, 400}, .sessionBus = false}};
    SessionBus m_bus;
    OstrelProgram m_ostrel{m_desktop.environment()};
    std::unique_ptr<TestKeyring> m_keyring;
};

TEST_F(SecretsEndToEnd, unlockedKeyring_holdsAllSecretsAndThereIsNoFile)
{
    startKeyring();
    expectSecretIsShownAsSet();
    EXPECT_EQ(m_keyring->item(vertexKeyService), QByteArray("abc"));
    EXPECT_THAT(file("settings.json").toStdString(), Not(HasSubstr("abc")));

    record();
    const auto token = m_keyring->item(localTokenService);
    ASSERT_TRUE(token.has_value());
    EXPECT_EQ(token->size(), 43);
    record();
    EXPECT_EQ(m_keyring->item(localTokenService), token) << "it is made once";
    EXPECT_FALSE(QFileInfo::exists(m_ostrel.path(QStringLiteral(".ostrel/secrets.json"))));
}

TEST_F(SecretsEndToEnd, noKeyring_fileHoldsTheSecretsUntilOneComes)
{
    expectSecretIsShownAsSet();
    record();
    const QByteArray secrets = file("secrets.json");
    EXPECT_TRUE(secrets.contains("abc"));
    record();
    EXPECT_EQ(file("secrets.json"), secrets) << "the token is made once";
    EXPECT_THAT(file("settings.json").toStdString(), Not(HasSubstr("abc")));

    startKeyring();
    record();
    EXPECT_EQ(m_keyring->item(vertexKeyService), QByteArray("abc"));
    const auto token = m_keyring->item(localTokenService);
    ASSERT_TRUE(token.has_value());
    EXPECT_TRUE(secrets.contains(*token)) << "it is still the same";
    EXPECT_FALSE(file("secrets.json").contains(*token));
    EXPECT_FALSE(file("secrets.json").contains("abc"));
    expectSecretIsShownAsSet();
}

TEST_F(SecretsEndToEnd, keyringStopped_programWaitsOnceAndEndsInOrder)
{
    startKeyring();
    m_keyring->daemon().freeze();
    expectSecretIsShownAsSet();
    EXPECT_TRUE(file("secrets.json").contains("abc"));
    record();
    EXPECT_TRUE(file("secrets.json").contains(localTokenService.toLatin1()));
}

TEST_F(SecretsEndToEnd, busStopped_programWaitsOnceAndEndsInOrder)
{
    startKeyring();
    m_bus.process().freeze();
    expectSecretIsShownAsSet();
    EXPECT_TRUE(file("secrets.json").contains("abc"));
    m_bus.process().thaw();
}

TEST_F(SecretsEndToEnd, keyringThatHidesASecret_isToldBesideTheSettings)
{
    startKeyring();
    expectSecretIsShownAsSet();
    m_keyring->lock();
    const auto locked = run(showSettings);
    EXPECT_THAT(locked.output.toStdString(), testing::ContainsRegex("byokGoogleVertexApiKey\n"));
    EXPECT_THAT(locked.messages.toStdString(),
                testing::AllOf(HasSubstr("byokGoogleVertexApiKey can't be seen"), HasSubstr("is locked; unlock it")));
    m_keyring->daemon().freeze();
    EXPECT_THAT(run(showSettings).messages.toStdString(), HasSubstr("the keyring does not answer"));
}

TEST_F(SecretsEndToEnd, keyringLocked_secretsWaitInTheFileAndMoveOnceItIsUnlocked)
{
    startKeyring();
    m_keyring->lock();
    expectSecretIsShownAsSet();
    EXPECT_TRUE(file("secrets.json").contains("abc"));
    m_keyring->unlock();
    expectSecretIsShownAsSet();
    EXPECT_EQ(m_keyring->item(vertexKeyService), QByteArray("abc"));
    EXPECT_FALSE(file("secrets.json").contains("abc"));
}

} // namespace
