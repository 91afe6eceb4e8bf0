#include "base/Files.h"
#include "observer/TokenStore.h"
#include "platform/secretfile/FallbackSecretStore.h"
#include "platform/secretfile/FileSecretStore.h"
#include "platform/secretservice/SecretServiceStore.h"
#include "support/Printers.h"
#include "support/SessionBus.h"
#include "support/TestKeyring.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using namespace std::chrono_literals;

/// Secrets of a real keyring and of the file beside it.
class MovingSecrets : public testing::Test
{
protected:
    QString token() { return loadOrCreateToken(m_secrets, localApiTokenService, secretAccount).value(); }
    void startKeyring() { m_keyring = std::make_unique<TestKeyring>(m_bus.environment()); }
    std::optional<QByteArray> inKeyring() const { return m_keyring->item(localApiTokenService); }
    std::optional<QString> inFile() { return m_file.read(localApiTokenService, secretAccount); }

    SessionBus m_bus;
    std::unique_ptr<TestKeyring> m_keyring;
    QTemporaryDir m_folder;
    SecretServiceStore m_service;
    FileSecretStore m_file{m_folder.filePath(QStringLiteral("secrets.json"))};
    FallbackSecretStore m_secrets{m_service, m_file};
};

TEST_F(MovingSecrets, tokenWithAKeyring_liesThereAndThereIsNoFile)
{
    startKeyring();
    const QString first = token();
    EXPECT_EQ(inKeyring(), first.toUtf8());
    EXPECT_FALSE(QFileInfo::exists(m_file.path()));
    EXPECT_EQ(token(), first);
}

TEST_F(MovingSecrets, tokenMadeWithoutAKeyring_staysTheSameWhenOneComesAndMovesThere)
{
    const QString first = token();
    EXPECT_EQ(inFile(), first);
    EXPECT_EQ(token(), first);
    startKeyring();
    EXPECT_EQ(token(), first);
    EXPECT_EQ(inKeyring(), first.toUtf8());
    EXPECT_EQ(inFile(), std::nullopt);
    EXPECT_EQ(token(), first);
}

TEST_F(MovingSecrets, secretChangedWhileLocked_replacesTheOldOneOnceUnlocked)
{
    startKeyring();
    ASSERT_TRUE(m_secrets.write(localApiTokenService, secretAccount, QStringLiteral("old")).has_value());
    m_keyring->lock();
    ASSERT_TRUE(m_secrets.write(localApiTokenService, secretAccount, QStringLiteral("new")).has_value());
    EXPECT_EQ(m_secrets.read(localApiTokenService, secretAccount), QStringLiteral("new"));
    m_keyring->unlock();
    EXPECT_EQ(inKeyring(), QByteArray("old"));
    EXPECT_EQ(m_secrets.read(localApiTokenService, secretAccount), QStringLiteral("new"));
    EXPECT_EQ(inKeyring(), QByteArray("new"));
    EXPECT_EQ(inFile(), std::nullopt);
}

TEST_F(MovingSecrets, secretRemovedWhileLocked_doesNotComeBackWhenUnlocked)
{
    startKeyring();
    ASSERT_TRUE(m_secrets.write(localApiTokenService, secretAccount, QStringLiteral("old")).has_value());
    m_keyring->lock();
    ASSERT_TRUE(m_secrets.remove(localApiTokenService, secretAccount).has_value());
    EXPECT_EQ(m_secrets.read(localApiTokenService, secretAccount), std::nullopt);
    m_keyring->unlock();
    EXPECT_EQ(inKeyring(), QByteArray("old"));
    EXPECT_EQ(m_secrets.read(localApiTokenService, secretAccount), std::nullopt);
    EXPECT_EQ(inKeyring(), std::nullopt);
    EXPECT_EQ(m_secrets.read(localApiTokenService, secretAccount), std::nullopt);
}

TEST_F(MovingSecrets, secretWrittenWhileTheKeyringIsStopped_isInTheFileAtOnceAndMovesLater)
{
    startKeyring();
    m_keyring->daemon().freeze();
    ASSERT_TRUE(m_secrets.write(localApiTokenService, secretAccount, QStringLiteral("new")).has_value());
    EXPECT_EQ(inFile(), QStringLiteral("new"));
    m_keyring->daemon().thaw();
    waitUntil(QStringLiteral("the secret to move"), 10s, [this] {
        EXPECT_EQ(m_secrets.read(localApiTokenService, secretAccount), QStringLiteral("new"));
        return inFile() == std::nullopt;
    });
    EXPECT_EQ(inKeyring(), QByteArray("new"));
}

} // namespace
} // namespace ostrel
