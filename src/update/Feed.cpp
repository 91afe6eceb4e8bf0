#include "update/Feed.h"

#include "base/Text.h"
#include "update/UpdateFault.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSysInfo>

#include <algorithm>

namespace ostrel {

namespace {

constexpr const char *headWords = "ostrel-feed 1 ";

Error notUnderstood(const QString &what)
{
    return updateError(UpdateFault::FeedNotUnderstood, what);
}

/// Takes the signed fields of an object one by one; the first that is wrong is kept.
class Fields
{
public:
    explicit Fields(const QJsonValue &value) : m_object(value.toObject())
    {
        if (!value.isObject())
            fail(QStringLiteral("an object was expected"));
    }

    QString text(const char *key)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (!value.isString())
            fail(QStringLiteral("\"%1\" is not a text").arg(QLatin1String(key)));
        return value.toString();
    }

    /// From 1 to what a double tells exactly.
    qint64 number(const char *key, qint64 most = 9'007'199'254'740'991)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        const qint64 number = value.toInteger(0);
        if (!value.isDouble() || number < 1 || number > most)
            fail(QStringLiteral("\"%1\" is not a whole number from 1 to %2").arg(QLatin1String(key)).arg(most));
        return number;
    }

    /// As in 2026-11-21T12:00:00Z.
    qint64 time(const char *key)
    {
        const QDateTime time = QDateTime::fromString(text(key), QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
        if (!time.isValid())
            fail(QStringLiteral("\"%1\" is not a time as in 2026-11-21T12:00:00Z").arg(QLatin1String(key)));
        return QDateTime(time.date(), time.time(), Qt::UTC).toMSecsSinceEpoch();
    }

    QJsonArray list(const char *key)
    {
        const QJsonValue value = m_object.value(QLatin1String(key));
        if (!value.isArray())
            fail(QStringLiteral("\"%1\" is not a list").arg(QLatin1String(key)));
        return value.toArray();
    }

    void fail(const QString &what)
    {
        if (!m_fault)
            m_fault = notUnderstood(what);
    }
    const std::optional<Error> &fault() const { return m_fault; }

private:
    QJsonObject m_object;
    std::optional<Error> m_fault;
};

Result<Release> readRelease(const QJsonValue &value, const QUrl &address)
{
    static const QRegularExpression hash(QStringLiteral("\\A[0-9a-f]{64}\\z"));
    Fields fields(value);
    const auto version = Version::parse(fields.text("version"));
    if (!version)
        fields.fail(QStringLiteral("\"version\" is not a version as in 1.4.0"));
    const QUrl url = address.resolved(QUrl(fields.text("url"), QUrl::StrictMode));
    if (!url.isValid())
        fields.fail(QStringLiteral("\"url\" is not an address"));
    const QString sha256 = fields.text("sha256");
    if (!hash.match(sha256).hasMatch())
        fields.fail(QStringLiteral("\"sha256\" is not 64 hexadecimal digits"));
    const auto signature = strictBase64(fields.text("signature").toLatin1());
    if (!signature)
        fields.fail(QStringLiteral("\"signature\" is not base64"));
    const QString platform = fields.text("platform");
    const qint64 size = fields.number("size", longestArchive);
    const QString notes = fields.text("notes");
    if (fields.fault())
        return std::unexpected(*fields.fault());
    return Release{.version = *version,
                   .platform = platform,
                   .url = url,
                   .size = size,
                   .sha256 = sha256.toLatin1(),
                   .signature = *signature,
                   .notes = notes};
}

Result<Feed> readDocument(const QByteArray &json, const QUrl &address)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        return std::unexpected(notUnderstood(error.errorString()));
    Fields fields(document.object());
    Feed feed{.sequence = fields.number("sequence"), .expiresMs = fields.time("expiresAt"), .releases = {}};
    const QJsonArray releases = fields.list("releases");
    if (fields.fault())
        return std::unexpected(*fields.fault());
    for (const auto &value : releases) {
        auto release = readRelease(value, address);
        if (!release)
            return std::unexpected(release.error());
        feed.releases.append(*std::move(release));
    }
    return feed;
}

} // namespace

Result<Feed> readFeed(const QByteArray &bytes, const UpdateKey &key, const QUrl &address)
{
    const qsizetype lineEnd = bytes.indexOf('\n');
    const QByteArray head = bytes.first(std::max<qsizetype>(lineEnd, 0));
    if (!head.startsWith(headWords))
        return std::unexpected(updateError(UpdateFault::FeedUnsigned));
    const auto signature = strictBase64(head.sliced(qsizetype(qstrlen(headWords))));
    const QByteArray json = bytes.sliced(lineEnd + 1);
    if (!signature || !key.hasSigned(signedFeedMessage(json), *signature))
        return std::unexpected(updateError(UpdateFault::FeedSignatureWrong));
    return readDocument(json, address);
}

std::optional<Release> newestRelease(const Feed &feed, const QString &platform, const Version &than)
{
    std::optional<Release> newest;
    for (const Release &release : feed.releases) {
        if (release.platform == platform && release.version > (newest ? newest->version : than))
            newest = release;
    }
    return newest;
}

QString thisPlatform()
{
    return QStringLiteral("linux-") + QSysInfo::buildCpuArchitecture();
}

} // namespace ostrel
