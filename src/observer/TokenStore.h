#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QString>
#include <functional>

namespace ostrel {

class SecretStore;

inline const QString localApiTokenService = QStringLiteral("tamsk-ostrel-local-api");

/// Fills the buffer with secure random bytes. @return 0, or the generator's error number
using SecureRandom = std::function<int(QByteArray &buffer)>;
int systemSecureRandom(QByteArray &buffer);

/// The stored token, or a new one of 32 random bytes in base64url (43 characters), which is then stored.
/// @return an error of domain "TamskOstrel.TokenStore" when the generator fails
Result<QString> loadOrCreateToken(SecretStore &secrets, const QString &service, const QString &account,
                                  const SecureRandom &random = systemSecureRandom);

} // namespace ostrel
