#include "update/Signatures.h"

#include "base/Fatal.h"

#include <sodium.h>

namespace ostrel {

namespace {

void initialiseOnce()
{
    static const int outcome = ::sodium_init();
    if (outcome < 0)
        fatal("libsodium could not be initialised");
}

} // namespace

std::optional<QByteArray> strictBase64(const QByteArray &text)
{
    const auto decoded = QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors);
    // There is more than one text for some bytes; only the one that encoding gives is taken.
    if (!decoded || decoded.decoded.toBase64() != text)
        return std::nullopt;
    return decoded.decoded;
}

std::optional<UpdateKey> UpdateKey::parse(const QString &base64)
{
    const auto bytes = strictBase64(base64.toLatin1());
    if (!bytes || bytes->size() != crypto_sign_PUBLICKEYBYTES)
        return std::nullopt;
    UpdateKey key;
    key.m_bytes = *bytes;
    return key;
}

bool UpdateKey::hasSigned(const QByteArray &message, const QByteArray &signature) const
{
    initialiseOnce();
    const auto bytes = [](const QByteArray &array) {
        return reinterpret_cast<const unsigned char *>(array.constData());
    };
    return signature.size() == crypto_sign_BYTES &&
           ::crypto_sign_verify_detached(bytes(signature), bytes(message), size_t(message.size()), bytes(m_bytes)) == 0;
}

QByteArray signedFeedMessage(const QByteArray &json)
{
    return "ostrel feed 1\n" + json;
}

QByteArray signedArchiveMessage(const QString &version, const QString &platform, qint64 size, const QByteArray &sha256)
{
    return "ostrel archive 1\n" + version.toUtf8() + '\n' + platform.toUtf8() + '\n' + QByteArray::number(size) + '\n' +
           sha256 + '\n';
}

} // namespace ostrel
