#include "observer/TokenStore.h"

#include "observer/SecretStore.h"
#include "support/FakeSecretStore.h"
#include "support/Printers.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

Result<QString> load(SecretStore &secrets, const SecureRandom &random = systemSecureRandom)
{
    return loadOrCreateToken(secrets, localApiTokenService, secretAccount, random);
}

TEST(TokenStore, token_staysTheSameAcrossLaunchesAndChangesWhenItsItemIsDeleted)
{
    FakeSecretStore secrets;
    const QString first = load(secrets).value();
    EXPECT_EQ(load(secrets).value(), first);
    ASSERT_TRUE(secrets.remove(localApiTokenService, secretAccount).has_value());
    EXPECT_NE(load(secrets).value(), first);
}

TEST(TokenStore, newToken_isThirtyTwoBytesInUnpaddedBase64Url)
{
    FakeSecretStore secrets;
    const QString token = load(secrets, [](QByteArray &buffer) {
                              EXPECT_EQ(buffer.size(), 32);
                              buffer.fill('\xfb');
                              return 0;
                          }).value();
    EXPECT_EQ(token, QStringLiteral("-_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v7-_v7-_s"));
    EXPECT_EQ(token.size(), 43);
    EXPECT_EQ(secrets.item(localApiTokenService), token);
}

TEST(TokenStore, systemTokens_areWellFormedAndDiffer)
{
    FakeSecretStore one, other;
    const QString token = load(one).value();
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^[A-Za-z0-9_-]{43}$")).match(token).hasMatch());
    EXPECT_NE(token, load(other).value());
}

TEST(TokenStore, generatorFails_errorHasDomainCodeAndWordsAndNothingIsStored)
{
    FakeSecretStore secrets;
    const auto token = load(secrets, [](QByteArray &) { return 5; });
    ASSERT_FALSE(token.has_value());
    EXPECT_EQ(token.error(), (Error{.domain = QStringLiteral("TamskOstrel.TokenStore"),
                                    .code = 5,
                                    .localizedDescription = QStringLiteral("Could not generate a secure token")}));
    EXPECT_EQ(secrets.item(localApiTokenService), std::nullopt);
}

TEST(TokenStore, existingToken_isReturnedWithoutDrawingRandomness)
{
    FakeSecretStore secrets;
    secrets.put(localApiTokenService, QStringLiteral("kept"));
    const auto token = load(secrets, [](QByteArray &) {
        ADD_FAILURE() << "no randomness is needed";
        return 1;
    });
    EXPECT_EQ(token.value(), QStringLiteral("kept"));
}

TEST(TokenStore, emptyItem_countsAsNone)
{
    FakeSecretStore secrets;
    secrets.put(localApiTokenService, QStringLiteral(""));
    EXPECT_EQ(load(secrets).value().size(), 43);
}

TEST(TokenStore, storeRefusesTheWrite_tokenHoldsForThisRun)
{
    FakeSecretStore secrets;
    secrets.setFaults({.writes = true});
    EXPECT_EQ(load(secrets).value().size(), 43);
}

} // namespace
