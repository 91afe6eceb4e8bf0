#include "model/LocalApiToken.h"
#include "support/FakeSecretStore.h"
#include "support/Printers.h"

#include <QUuid>

#include <gmock/gmock.h>

using namespace ostrel;

namespace {

int brokenRandom(QByteArray &)
{
    return 5;
}

TEST(LocalApiToken, firstUse_isCreatedAndKept)
{
    FakeSecretStore secrets;
    const QString token = localApiTokenOrFallback(secrets);
    EXPECT_EQ(token.size(), 43);
    EXPECT_EQ(secrets.item(QStringLiteral("tamsk-ostrel-local-api")), token);
    EXPECT_EQ(localApiTokenOrFallback(secrets), token) << "the next launch has the same";
}

TEST(LocalApiToken, generatorBroken_isAFreshUuidEachTime)
{
    FakeSecretStore secrets;
    const QString first = localApiTokenOrFallback(secrets, brokenRandom);
    const QString second = localApiTokenOrFallback(secrets, brokenRandom);
    EXPECT_FALSE(QUuid::fromString(first).isNull());
    EXPECT_FALSE(QUuid::fromString(second).isNull());
    EXPECT_NE(first, second);
}

TEST(LocalApiToken, storeRefuses_isATokenForThisRun)
{
    FakeSecretStore secrets;
    secrets.setFaults({.reads = true, .writes = true});
    const QString first = localApiTokenOrFallback(secrets);
    EXPECT_GE(first.size(), 36);
    EXPECT_NE(localApiTokenOrFallback(secrets), first);
}

} // namespace
