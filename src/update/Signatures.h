#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace ostrel {

/// The public half of the key that updates are signed with (Ed25519).
class UpdateKey
{
public:
    /// @return nothing unless the text is 32 bytes in base64
    static std::optional<UpdateKey> parse(const QString &base64);

    /// Whether the key's owner has signed exactly this. Any thread.
    bool hasSigned(const QByteArray &message, const QByteArray &signature) const;

    QString text() const { return QString::fromLatin1(m_bytes.toBase64()); }

private:
    QByteArray m_bytes;
};

/// What is signed of a feed: its own bytes, marked so that they can't pass for anything else that is signed.
QByteArray signedFeedMessage(const QByteArray &json);

/// What is signed of an archive: all that the feed says about it, so that it passes for no other version.
/// @param sha256 in lower-case hexadecimal digits
QByteArray signedArchiveMessage(const QString &version, const QString &platform, qint64 size, const QByteArray &sha256);

/// The bytes behind a text in base64 of exactly that form. @return nothing for everything else
std::optional<QByteArray> strictBase64(const QByteArray &text);

} // namespace ostrel
