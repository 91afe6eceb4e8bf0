#include "observer/ArchiveTargetRules.h"

#include "base/Text.h"

#include <QRegularExpression>
#include <QUrl>

#include <array>

namespace ostrel::ArchiveTargetRules {

namespace {

using Kind = ArchiveTarget::Kind;

/// What a text of the record has to look like, and what is said where it doesn't.
struct Rule {
    QString ArchiveTarget::*field;
    const char *pattern;
    const char *words;
};

constexpr std::array bucketRules{
    Rule{&ArchiveTarget::bucket, "[a-z0-9][a-z0-9.-]{1,61}[a-z0-9]",
         "A bucket's name has 3 to 63 small letters, digits, dots and dashes."},
    Rule{&ArchiveTarget::region, "[a-z0-9-]{1,64}", "A region is written as in eu-central-1."},
    Rule{&ArchiveTarget::prefix, "(?:[A-Za-z0-9_-][A-Za-z0-9._-]*(?:/[A-Za-z0-9_-][A-Za-z0-9._-]*)*)?",
         "A folder in the bucket is named by letters, digits, dots, dashes and underscores, with slashes between "
         "names."},
    Rule{&ArchiveTarget::accessKeyId, "[!-~]{1,256}", "Enter the access key ID as the provider gave it."},
    Rule{&ArchiveTarget::secretAccessKey, "[!-~]{1,256}", "Enter the secret access key as the provider gave it."},
};

constexpr std::array rcloneRules{
    Rule{&ArchiveTarget::remote, "[A-Za-z0-9_][A-Za-z0-9_ -]*:(?!-)[^\\n\\r\\0]*",
         "Name a remote of your rclone configuration and a folder there, as in mycloud:footage."},
};

bool matches(const char *pattern, const QString &text)
{
    return QRegularExpression(QRegularExpression::anchoredPattern(QLatin1String(pattern))).match(text).hasMatch();
}

/// What is sent there is encrypted, but the signature is not; so it stays off the wires that others can read.
bool isSafeEndpoint(const QString &text)
{
    const QUrl url(text, QUrl::StrictMode);
    const bool isBare = (url.path().isEmpty() || url.path() == QLatin1String("/")) && !url.hasQuery() &&
                        !url.hasFragment() && url.userInfo().isEmpty();
    if (!url.isValid() || url.host().isEmpty() || !isBare)
        return false;
    const bool isLoopback = url.host() == QLatin1String("127.0.0.1") || url.host() == QLatin1String("localhost") ||
                            url.host() == QLatin1String("::1");
    return url.scheme() == QLatin1String("https") || (url.scheme() == QLatin1String("http") && isLoopback);
}

template <class Rules>
std::optional<QString> firstComplaint(const Rules &rules, const ArchiveTarget &target)
{
    for (const Rule &rule : rules) {
        if (!matches(rule.pattern, target.*rule.field))
            return QLatin1String(rule.words);
    }
    return std::nullopt;
}

std::optional<QString> complaintAboutBucket(const ArchiveTarget &target)
{
    if (!isSafeEndpoint(target.endpoint))
        return QStringLiteral("The endpoint is https:// and a host, with nothing behind it; http:// is for this "
                              "machine only.");
    return firstComplaint(bucketRules, target);
}

} // namespace

ArchiveTarget tidied(ArchiveTarget target, const std::optional<ArchiveTarget> &kept)
{
    for (QString ArchiveTarget::*text :
         {&ArchiveTarget::endpoint, &ArchiveTarget::region, &ArchiveTarget::bucket, &ArchiveTarget::prefix,
          &ArchiveTarget::accessKeyId, &ArchiveTarget::secretAccessKey, &ArchiveTarget::remote})
        target.*text = trimmedBlanksAndNewlines(target.*text);
    if (keepsSecret(target, kept))
        target.secretAccessKey = ArchiveTarget::redacted;
    return target;
}

bool keepsSecret(const ArchiveTarget &target, const std::optional<ArchiveTarget> &kept)
{
    return target.kind == Kind::S3 && target.secretAccessKey.isEmpty() && kept && kept->kind == Kind::S3 &&
           kept->endpoint == target.endpoint && kept->accessKeyId == target.accessKeyId;
}

std::optional<QString> complaintAbout(const ArchiveTarget &target)
{
    switch (target.kind) {
    case Kind::None:
        return QStringLiteral("Choose where the archive is to lie.");
    case Kind::Folder:
        if (target.path.startsWith(u'/') || target.path.startsWith(QLatin1String("~/")))
            return std::nullopt;
        return QStringLiteral("Choose a folder; its path begins with / or ~/.");
    case Kind::S3:
        return complaintAboutBucket(target);
    case Kind::Rclone:
        return firstComplaint(rcloneRules, target);
    }
    return std::nullopt;
}

} // namespace ostrel::ArchiveTargetRules
