#include "observer/ArchiveTarget.h"

#include "base/Fault.h"
#include "observer/JsonRecord.h"

#include <QUrl>

#include <algorithm>
#include <array>
#include <concepts>
#include <optional>
#include <type_traits>

namespace ostrel {

namespace {

using Kind = ArchiveTarget::Kind;

struct KindName {
    Kind kind;
    QLatin1String name;
};

constexpr std::array kindNames{KindName{Kind::None, QLatin1String("none")},
                               KindName{Kind::Folder, QLatin1String("folder")}, KindName{Kind::S3, QLatin1String("s3")},
                               KindName{Kind::Rclone, QLatin1String("rclone")}};

std::optional<Kind> kindNamed(const QString &name)
{
    const auto *const found =
        std::find_if(kindNames.begin(), kindNames.end(), [&name](const KindName &entry) { return entry.name == name; });
    return found == kindNames.end() ? std::nullopt : std::optional(found->kind);
}

template <class T>
concept MaybeConstTarget = std::same_as<std::remove_const_t<T>, ArchiveTarget>;

/// All but the kind, in the order of the wire.
void eachField(MaybeConstTarget auto &target, auto &visit)
{
    visit("lossless", target.lossless);
    switch (target.kind) {
    case Kind::None:
        return;
    case Kind::Folder:
        return visit("path", target.path);
    case Kind::S3:
        visit("endpoint", target.endpoint);
        visit("region", target.region);
        visit("bucket", target.bucket);
        visit("prefix", target.prefix);
        visit("pathStyle", target.pathStyle);
        visit("accessKeyId", target.accessKeyId);
        return visit("secretAccessKey", target.secretAccessKey);
    case Kind::Rclone:
        return visit("remote", target.remote);
    }
}

QString bucketText(const ArchiveTarget &target)
{
    const QString name =
        target.prefix.isEmpty() ? target.bucket : QStringLiteral("%1/%2").arg(target.bucket, target.prefix);
    const QString host = QUrl(target.endpoint).authority();
    return QStringLiteral("bucket %1 at %2").arg(name, host.isEmpty() ? target.endpoint : host);
}

} // namespace

const QString ArchiveTarget::redacted = QStringLiteral("<redacted>");

Result<ArchiveTarget> ArchiveTarget::fromJson(const QByteArray &json)
{
    RecordReader read(json);
    QString name;
    read("kind", name);
    const auto kind = kindNamed(name);
    ArchiveTarget target;
    target.kind = kind.value_or(Kind::None);
    eachField(target, read);
    auto outcome = read.outcome(std::move(target));
    if (outcome && !kind)
        return std::unexpected(faultError(Fault::UndecodableAnswer, QStringLiteral("\"kind\" is not known")));
    return outcome;
}

QByteArray ArchiveTarget::toJson() const
{
    RecordWriter write;
    write("kind", archiveTargetKindName(kind));
    eachField(*this, write);
    return write.finish();
}

QString archiveTargetKindName(Kind kind)
{
    const auto *const found =
        std::find_if(kindNames.begin(), kindNames.end(), [kind](const KindName &entry) { return entry.kind == kind; });
    return found->name;
}

bool isSamePlace(const ArchiveTarget &one, const ArchiveTarget &other)
{
    if (one.kind != other.kind)
        return false;
    switch (one.kind) {
    case Kind::None:
        return true;
    case Kind::Folder:
        return one.path == other.path;
    case Kind::S3:
        return one.endpoint == other.endpoint && one.bucket == other.bucket && one.prefix == other.prefix;
    case Kind::Rclone:
        return one.remote == other.remote;
    }
    return false;
}

QString archivePlaceText(const ArchiveTarget &target)
{
    switch (target.kind) {
    case Kind::None:
        return {};
    case Kind::Folder:
        return target.path;
    case Kind::S3:
        return bucketText(target);
    case Kind::Rclone:
        return QStringLiteral("rclone %1").arg(target.remote);
    }
    return {};
}

} // namespace ostrel
