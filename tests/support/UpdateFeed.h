#pragma once

#include "update/Feed.h"
#include "update/Signatures.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

#include <array>
#include <sodium.h>

namespace ostrel {

/// A key as those who publish versions have it. Targets that use it link ostrel::update and libsodium.
class SigningKey
{
public:
    SigningKey()
    {
        static_cast<void>(::sodium_init());
        ::crypto_sign_keypair(m_public.data(), m_secret.data());
    }

    QString publicText() const
    {
        return QString::fromLatin1(
            QByteArray(reinterpret_cast<const char *>(m_public.data()), qsizetype(m_public.size())).toBase64());
    }
    UpdateKey publicKey() const { return *UpdateKey::parse(publicText()); }

    QByteArray sign(const QByteArray &message) const
    {
        QByteArray signature(crypto_sign_BYTES, '\0');
        ::crypto_sign_detached(reinterpret_cast<unsigned char *>(signature.data()), nullptr,
                               reinterpret_cast<const unsigned char *>(message.constData()), size_t(message.size()),
                               m_secret.data());
        return signature;
    }

private:
    std::array<unsigned char, crypto_sign_PUBLICKEYBYTES> m_public{};
    std::array<unsigned char, crypto_sign_SECRETKEYBYTES> m_secret{};
};

inline QByteArray sha256Of(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

/// What a feed says about an archive.
inline QJsonObject announcement(const SigningKey &key, const QString &version, const QByteArray &archive,
                                const QString &url, const QString &platform = thisPlatform())
{
    const QByteArray hash = sha256Of(archive);
    const QByteArray signature = key.sign(signedArchiveMessage(version, platform, archive.size(), hash));
    return {{QStringLiteral("version"), version},
            {QStringLiteral("platform"), platform},
            {QStringLiteral("url"), url},
            {QStringLiteral("size"), archive.size()},
            {QStringLiteral("sha256"), QString::fromLatin1(hash)},
            {QStringLiteral("signature"), QString::fromLatin1(signature.toBase64())},
            {QStringLiteral("notes"), QStringLiteral("What is new.")}};
}

/// The document of a feed. The manual clock begins in November 2023.
inline QJsonObject feedDocument(const QJsonArray &releases, qint64 sequence = 1,
                                const QString &expiresAt = QStringLiteral("2024-01-31T00:00:00Z"))
{
    return {{QStringLiteral("sequence"), sequence},
            {QStringLiteral("expiresAt"), expiresAt},
            {QStringLiteral("releases"), releases}};
}

inline QByteArray signedFeed(const SigningKey &key, const QByteArray &json)
{
    return "ostrel-feed 1 " + key.sign(signedFeedMessage(json)).toBase64() + '\n' + json;
}

inline QByteArray signedFeed(const SigningKey &key, const QJsonObject &document)
{
    return signedFeed(key, QJsonDocument(document).toJson());
}

} // namespace ostrel
