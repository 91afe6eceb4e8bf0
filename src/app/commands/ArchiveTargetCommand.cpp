#include "app/ArchiveSession.h"
#include "app/ArchiveTexts.h"
#include "app/Command.h"
#include "app/CommandLine.h"
#include "app/Json.h"
#include "app/StandardInput.h"
#include "app/commands/ArchiveActions.h"
#include "base/Fault.h"
#include "base/Files.h"
#include "base/Text.h"
#include "observer/ArchiveTargetRules.h"

#include <expected>

namespace ostrel {

namespace {

using Kind = ArchiveTarget::Kind;

const QString endpointOption = QStringLiteral("endpoint");
const QString regionOption = QStringLiteral("region");
const QString prefixOption = QStringLiteral("prefix");
const QString pathStyleOption = QStringLiteral("path-style");
const QString accessKeyOption = QStringLiteral("access-key");
const QString secretFileOption = QStringLiteral("secret-file");
const QString losslessOption = QStringLiteral("lossless");
const QString yesOption = QStringLiteral("yes");

const QStringList bucketOptions{endpointOption,  regionOption,    prefixOption,
                                pathStyleOption, accessKeyOption, secretFileOption};

CommandResult failed(const QString &words)
{
    return CommandResult::failure(ExitFailed, words);
}

QString given(const QCommandLineParser &parser, const QString &option, const QString &otherwise)
{
    return parser.isSet(option) ? parser.value(option) : otherwise;
}

QStringList wordsOf(const QCommandLineParser &parser)
{
    return parser.positionalArguments().mid(2);
}

/// What is wrong with the words and options. Words are not repeated: one may be a secret.
std::optional<QString> complaintAbout(const QCommandLineParser &parser)
{
    const QStringList words = wordsOf(parser);
    if (words.isEmpty()) {
        for (const QString &option : bucketOptions + QStringList{losslessOption, yesOption}) {
            if (parser.isSet(option))
                return QStringLiteral("--%1 belongs to a place: target folder|s3|rclone WHERE.").arg(option);
        }
        return std::nullopt;
    }
    const bool isBucket = words[0] == QLatin1String("s3");
    if (!isBucket && words[0] != QLatin1String("folder") && words[0] != QLatin1String("rclone"))
        return QStringLiteral("target takes folder PATH, s3 BUCKET or rclone REMOTE:PATH.");
    if (isBucket && words.size() > 2)
        return QStringLiteral(
            "s3 takes one word, the bucket's name. Other users can see what stands on a command line, "
            "so the secret access key is read from standard input or by --secret-file FILE.");
    if (words.size() != 2 || words[1].isEmpty())
        return QStringLiteral("%1 takes one word: where the archive is to lie.").arg(words[0]);
    for (const QString &option : bucketOptions) {
        if (!isBucket && parser.isSet(option))
            return QStringLiteral("%1 takes no --%2.").arg(words[0], option);
    }
    if (isBucket && (!parser.isSet(endpointOption) || !parser.isSet(accessKeyOption)))
        return QStringLiteral("s3 takes --endpoint URL and --access-key ID.");
    return std::nullopt;
}

/// The place that the words name, but for a bucket's secret.
ArchiveTarget targetOf(const QCommandLineParser &parser)
{
    const QString kind = wordsOf(parser).value(0);
    const QString where = wordsOf(parser).value(1);
    ArchiveTarget target;
    if (kind == archiveTargetKindName(Kind::Folder)) {
        target.kind = Kind::Folder;
        target.path = absoluteFromHere(where);
    } else if (kind == archiveTargetKindName(Kind::Rclone)) {
        target.kind = Kind::Rclone;
        target.remote = where;
    } else {
        target.kind = Kind::S3;
        target.bucket = where;
        target.endpoint = parser.value(endpointOption);
        target.region = given(parser, regionOption, target.region);
        target.prefix = parser.value(prefixOption);
        target.pathStyle = parser.isSet(pathStyleOption);
        target.accessKeyId = parser.value(accessKeyOption);
    }
    return target;
}

/// Whether pictures are kept bit for bit; none where it stays as it is.
std::expected<std::optional<bool>, QString> losslessOf(const QCommandLineParser &parser)
{
    if (!parser.isSet(losslessOption))
        return std::nullopt;
    const QString value = parser.value(losslessOption);
    if (value == QLatin1String("true") || value == QLatin1String("false"))
        return value == QLatin1String("true");
    return std::unexpected(QStringLiteral("--%1 takes true or false.").arg(losslessOption));
}

/// A bucket's secret: one line of standard input, so that an answer may follow, or a file.
Result<QString> readSecret(const QCommandLineParser &parser)
{
    if (!parser.isSet(secretFileOption))
        return readStandardInputSecretLine(QStringLiteral("the secret access key"));
    const QString path = parser.value(secretFileOption);
    const auto bytes = readFile(path);
    if (!bytes)
        return std::unexpected(bytes.error());
    if (bytes->size() > longestInput)
        return std::unexpected(
            faultError(Fault::FileFailed, QStringLiteral("%1 (it is too long for a secret)").arg(path)));
    return trimmedBlanksAndNewlines(QString::fromUtf8(*bytes));
}

/// @return why it is not confirmed; none where it is, or where there is nothing to confirm
std::optional<QString> confirm(ArchiveSession &session, const ArchiveTarget &next)
{
    const auto consequence = session.target().consequenceOf(next);
    if (!consequence)
        return std::nullopt;
    printMessage(QStringLiteral("%1\nType yes to use the new place: ").arg(*consequence));
    const auto typed = readStandardInputLine();
    if (typed && trimmedBlanksAndNewlines(*typed) == QLatin1String("yes"))
        return std::nullopt;
    return QStringLiteral("The archive's place stays as it is. With --yes nothing is asked.");
}

CommandResult shown(const ArchiveTarget &target, bool json, const QString &messages = {})
{
    return {.status = ExitSuccess,
            .output = json ? jsonDocument(archiveTargetJson(target)) : archiveTargetText(target),
            .messages = messages};
}

QString notOffered()
{
    return QStringLiteral("This observer lets nobody choose where the archive lies.");
}

CommandResult show(bool json, const Platform &platform)
{
    const auto session = ArchiveSession::openToRead(platform);
    if (!session)
        return failed(session.error());
    const auto target = (*session)->fetchArchiveTarget();
    if (!target)
        return failed(target.error().localizedDescription);
    return *target ? shown(**target, json) : failed(notOffered());
}

/// What the observer has now, as far as what follows depends on it.
/// @return why the place can't be changed
std::optional<QString> learnPresent(ArchiveSession &session)
{
    if (const auto status = session.fetchArchiveStatus(); !status)
        return status.error().localizedDescription;
    const auto present = session.fetchArchiveTarget();
    if (present && !*present)
        return notOffered();
    // A place that the observer can't make sense of is what this mends.
    if (!present && !isFault(present.error(), Fault::BadServerResponse))
        return present.error().localizedDescription;
    return std::nullopt;
}

CommandResult change(ArchiveTarget target, std::optional<bool> lossless, const QCommandLineParser &parser,
                     const Platform &platform)
{
    const auto session = ArchiveSession::open(platform);
    if (!session)
        return failed(session.error());
    if (const auto error = learnPresent(**session))
        return failed(*error);
    const auto &present = (*session)->target().archiveTarget();
    target.lossless = lossless.value_or(present && present->lossless);
    if (!parser.isSet(yesOption)) {
        if (const auto failure = confirm(**session, target))
            return failed(*failure);
    }
    const auto stored = (*session)->storeArchiveTarget(target);
    if (!stored)
        return failed(stored.error().localizedDescription);
    const bool json = parser.isSet(jsonOption().names().constFirst());
    return shown(*stored, json, QStringLiteral("The archive's place is %1.\n").arg(archivePlaceText(*stored)));
}

} // namespace

QStringList archiveTargetOptionNames()
{
    return bucketOptions + QStringList{losslessOption, yesOption};
}

QList<QCommandLineOption> archiveTargetOptions()
{
    return {{endpointOption, QStringLiteral("target s3: the server, https:// and its host."), QStringLiteral("URL")},
            {regionOption, QStringLiteral("target s3: its region, us-east-1 unless told."), QStringLiteral("REGION")},
            {prefixOption, QStringLiteral("target s3: a folder in the bucket."), QStringLiteral("PREFIX")},
            {pathStyleOption, QStringLiteral("target s3: the bucket's name stands in the path, not in the host's.")},
            {accessKeyOption, QStringLiteral("target s3: the access key ID."), QStringLiteral("ID")},
            {secretFileOption,
             QStringLiteral("target s3: the secret access key is in FILE, else read from standard input."),
             QStringLiteral("FILE")},
            {losslessOption,
             QStringLiteral("target: whether pictures are kept bit for bit; stays as it is unless told."),
             QStringLiteral("true|false")},
            {yesOption, QStringLiteral("target: change the place of an archive in use without a question.")}};
}

CommandResult archiveTarget(const QCommandLineParser &parser, const Platform &platform)
{
    const QString command = QStringLiteral("archive");
    if (const auto complaint = complaintAbout(parser))
        return usageError(command, *complaint);
    if (wordsOf(parser).isEmpty())
        return show(parser.isSet(jsonOption().names().constFirst()), platform);
    const auto lossless = losslessOf(parser);
    if (!lossless)
        return usageError(command, lossless.error());
    ArchiveTarget target = targetOf(parser);
    if (target.kind == Kind::S3) {
        const auto secret = readSecret(parser);
        if (!secret)
            return CommandResult::failure(ExitUsage, secret.error().localizedDescription);
        target.secretAccessKey = *secret;
    }
    target = ArchiveTargetRules::tidied(target, std::nullopt);
    if (const auto complaint = ArchiveTargetRules::complaintAbout(target))
        return CommandResult::failure(ExitUsage, *complaint);
    return change(target, *lossless, parser, platform);
}

} // namespace ostrel
