#include "observer/TokenStore.h"

#include "base/Log.h"
#include "observer/SecretStore.h"

#include <cerrno>

#include <sys/random.h>

namespace ostrel {

int systemSecureRandom(QByteArray &buffer)
{
    qsizetype filled = 0;
    while (filled < buffer.size()) {
        const ssize_t n = ::getrandom(buffer.data() + filled, size_t(buffer.size() - filled), 0);
        if (n < 0 && errno != EINTR)
            return errno;
        filled += n > 0 ? n : 0;
    }
    return 0;
}

Result<QString> loadOrCreateToken(SecretStore &secrets, const QString &service, const QString &account,
                                  const SecureRandom &random)
{
    // An empty one would be no token at all: the observer refuses to start without.
    const std::optional<QString> stored = secrets.read(service, account);
    if (stored && !stored->isEmpty())
        return *stored;

    QByteArray bytes(32, '\0');
    if (const int status = random(bytes); status != 0)
        return std::unexpected(Error{.domain = QStringLiteral("TamskOstrel.TokenStore"),
                                     .code = status,
                                     .localizedDescription = QStringLiteral("Could not generate a secure token")});
    QString token = QString::fromLatin1(bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
    if (const Result<> written = secrets.write(service, account, token); !written)
        qCWarning(logObserver, "the local token could not be stored, it holds for this run only: %ls",
                  qUtf16Printable(written.error().localizedDescription));
    return token;
}

} // namespace ostrel
