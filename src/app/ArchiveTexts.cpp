#include "app/ArchiveTexts.h"

#include "app/Json.h"

namespace ostrel {

namespace {

QString line(const QString &label, const QString &text)
{
    return QStringLiteral("%1 %2\n").arg(label, -12).arg(text);
}

QString stateText(const ArchiveStatus &status)
{
    if (status.archiveEnabled)
        return QStringLiteral("on");
    return status.archiveVaultId.isEmpty() ? QStringLiteral("off") : QStringLiteral("paused");
}

QString exportText(const std::optional<ArchiveExportStatus> &exporting)
{
    if (!exporting)
        return QStringLiteral("not known");
    if (exporting->state == QLatin1String("idle"))
        return QStringLiteral("none");
    if (exporting->state == QLatin1String("running"))
        return QStringLiteral("running, %1").arg(exportProgressText(*exporting));
    return exportOutcomeText(*exporting);
}

QString clips(qint64 count)
{
    return count == 1 ? QStringLiteral("1 clip") : QStringLiteral("%1 clips").arg(count);
}

} // namespace

QString archiveStatusText(const ArchiveStatus &status, const std::optional<ArchiveExportStatus> &exporting)
{
    const QString vault = status.archiveVaultId.isEmpty() ? QStringLiteral("none") : status.archiveVaultId;
    const QString key = status.hasRecoveryKey ? QStringLiteral("exists") : QStringLiteral("none");
    return line(QStringLiteral("archive"), stateText(status)) + line(QStringLiteral("vault"), vault) +
           line(QStringLiteral("recovery key"), key) + line(QStringLiteral("export"), exportText(exporting));
}

QJsonObject archiveStatusJson(const ArchiveStatus &status, const std::optional<ArchiveExportStatus> &exporting)
{
    return {{QStringLiteral("archiveEnabled"), status.archiveEnabled},
            {QStringLiteral("archiveVaultId"), status.archiveVaultId},
            {QStringLiteral("hasRecoveryKey"), status.hasRecoveryKey},
            {QStringLiteral("export"), exporting ? QJsonValue(exportStatusJson(*exporting)) : QJsonValue()}};
}

QJsonObject exportStatusJson(const ArchiveExportStatus &status)
{
    return {{QStringLiteral("state"), status.state},
            {QStringLiteral("exported"), status.exported},
            {QStringLiteral("total"), status.total},
            {QStringLiteral("skipped"), status.skipped},
            {QStringLiteral("currentDay"), orNull(status.currentDay)},
            {QStringLiteral("error"), orNull(status.error)}};
}

QString archiveTargetText(const ArchiveTarget &target)
{
    const QString place =
        target.kind == ArchiveTarget::Kind::None ? QStringLiteral("not chosen") : archivePlaceText(target);
    QString text = line(QStringLiteral("place"), place);
    if (target.kind == ArchiveTarget::Kind::S3) {
        const QString style = target.pathStyle ? QStringLiteral("in the path") : QStringLiteral("in the host's name");
        text += line(QStringLiteral("region"), target.region) + line(QStringLiteral("bucket name"), style) +
                line(QStringLiteral("access key"), target.accessKeyId);
    }
    const QString pictures =
        target.lossless ? QStringLiteral("bit for bit") : QStringLiteral("as video where it can be made");
    return text + line(QStringLiteral("pictures"), pictures);
}

QJsonObject archiveTargetJson(const ArchiveTarget &target)
{
    using Kind = ArchiveTarget::Kind;
    const auto of = [&target](Kind kind, const QJsonValue &value) {
        return target.kind == kind ? value : QJsonValue(QJsonValue::Null);
    };
    return {{QStringLiteral("kind"), archiveTargetKindName(target.kind)},
            {QStringLiteral("lossless"), target.lossless},
            {QStringLiteral("path"), of(Kind::Folder, target.path)},
            {QStringLiteral("endpoint"), of(Kind::S3, target.endpoint)},
            {QStringLiteral("region"), of(Kind::S3, target.region)},
            {QStringLiteral("bucket"), of(Kind::S3, target.bucket)},
            {QStringLiteral("prefix"), of(Kind::S3, target.prefix)},
            {QStringLiteral("pathStyle"), of(Kind::S3, target.pathStyle)},
            {QStringLiteral("accessKeyId"), of(Kind::S3, target.accessKeyId)},
            {QStringLiteral("secretAccessKey"), of(Kind::S3, ArchiveTarget::redacted)},
            {QStringLiteral("remote"), of(Kind::Rclone, target.remote)}};
}

QString exportProgressText(const ArchiveExportStatus &status)
{
    const QString text = QStringLiteral("%1 of %2").arg(status.exported).arg(clips(status.total));
    return status.currentDay ? QStringLiteral("%1 (%2)").arg(text, *status.currentDay) : text;
}

QString exportOutcomeText(const ArchiveExportStatus &status)
{
    if (status.state == QLatin1String("cancelled"))
        return QStringLiteral("Export cancelled after %1.").arg(exportProgressText(status));
    if (status.state == QLatin1String("failed"))
        return QStringLiteral("Export failed: %1").arg(status.error.value_or(QStringLiteral("Something went wrong.")));
    const QString done = QStringLiteral("Export complete: %1").arg(clips(status.exported));
    return status.skipped > 0 ? QStringLiteral("%1, %2 skipped.").arg(done).arg(status.skipped)
                              : done + QLatin1Char('.');
}

} // namespace ostrel
