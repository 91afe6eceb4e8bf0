#include "model/LocalApiToken.h"

#include "observer/SecretStore.h"

#include <QUuid>

namespace ostrel {

QString localApiTokenOrFallback(SecretStore &secrets, const SecureRandom &random)
{
    const auto token = loadOrCreateToken(secrets, localApiTokenService, secretAccount, random);
    return token ? *token : QUuid::createUuid().toString(QUuid::WithoutBraces);
}

} // namespace ostrel
