#include "app/ArchiveSession.h"
#include "app/ArchiveTexts.h"
#include "app/Json.h"
#include "app/StandardInput.h"
#include "app/commands/ArchiveActions.h"
#include "app/commands/Commands.h"
#include "base/Fault.h"
#include "base/Files.h"
#include "base/Text.h"

#include <QDir>
#include <QStringDecoder>

#include <expected>

namespace ostrel {

namespace {

const QString commandName = QStringLiteral("archive");
const QString statusAction = QStringLiteral("status");
const QString enableAction = QStringLiteral("enable");
const QString disableAction = QStringLiteral("disable");
const QString recoverAction = QStringLiteral("recover");
const QString exportAction = QStringLiteral("export");
const QString targetAction = QStringLiteral("target");
const QStringList allActions{statusAction, enableAction, disableAction, recoverAction, exportAction, targetAction};

const QString keyFileOption = QStringLiteral("key-file");
const QString fromOption = QStringLiteral("from");
const QString toOption = QStringLiteral("to");
const QString intoOption = QStringLiteral("into");

CommandResult failed(const QString &words)
{
    return CommandResult::failure(ExitFailed, words);
}

/// The options that an action takes.
QStringList optionsOf(const QString &action)
{
    const QString json = jsonOption().names().constFirst();
    if (action == statusAction)
        return {json};
    if (action == exportAction)
        return {json, fromOption, toOption, intoOption};
    if (action == targetAction)
        return archiveTargetOptionNames() + QStringList(json);
    return action == disableAction ? QStringList() : QStringList(keyFileOption);
}

/// What is wrong with the words and options. Words are not repeated: one may be a key.
std::optional<QString> complaintAbout(const QCommandLineParser &parser)
{
    const QStringList words = parser.positionalArguments().mid(1);
    if (words.isEmpty() || !allActions.contains(words[0]))
        return QStringLiteral("Say what to do: %1.").arg(allActions.join(QLatin1String(", ")));
    if (words.size() > 1 && words[0] == recoverAction)
        return QStringLiteral("Other users can see what stands on a command line, so the key is read from standard "
                              "input or by --key-file FILE.");
    if (words.size() > 1 && words[0] != targetAction)
        return QStringLiteral("%1 takes no further words.").arg(words[0]);
    for (const QString &option :
         QStringList{keyFileOption, fromOption, toOption, intoOption, jsonOption().names().constFirst()} +
             archiveTargetOptionNames()) {
        if (parser.isSet(option) && !optionsOf(words[0]).contains(option))
            return QStringLiteral("%1 takes no --%2.").arg(words[0], option);
    }
    if (words[0] == exportAction && parser.value(intoOption).isEmpty())
        return QStringLiteral("Say where to: --into DIR.");
    return std::nullopt;
}

std::expected<ArchiveOptions, QString> readOptions(const QCommandLineParser &parser)
{
    ArchiveOptions options{
        .json = parser.isSet(jsonOption()), .keyFile = {}, .from = {}, .to = {}, .into = parser.value(intoOption)};
    if (parser.isSet(keyFileOption)) {
        options.keyFile = parser.value(keyFileOption);
        if (options.keyFile->isEmpty())
            return std::unexpected(QStringLiteral("--key-file takes the name of a file."));
    }
    for (const auto &[name, date] : {std::pair(fromOption, &options.from), std::pair(toOption, &options.to)}) {
        if (!parser.isSet(name))
            continue;
        *date = QDate::fromString(parser.value(name), QStringLiteral("yyyy-MM-dd"));
        if (!date->isValid())
            return std::unexpected(QStringLiteral("--%1 takes a day as in 2026-11-21.").arg(name));
    }
    if (!options.into.isEmpty())
        options.into = absoluteFromHere(options.into);
    return options;
}

CommandResult showStatus(const ArchiveOptions &options, const Platform &platform)
{
    const auto session = ArchiveSession::openToRead(platform);
    if (!session)
        return failed(session.error());
    const auto status = (*session)->fetchArchiveStatus();
    if (!status)
        return failed(status.error().localizedDescription);
    const auto answer = (*session)->fetchExportStatus();
    const auto exporting = answer ? std::optional(*answer) : std::nullopt;
    return CommandResult::data(options.json ? jsonDocument(archiveStatusJson(*status, exporting))
                                            : archiveStatusText(*status, exporting));
}

CommandResult perform(ArchiveSession &session, const std::function<void(ArchiveArea &archive)> &begin)
{
    if (const auto error = session.perform(begin))
        return failed(*error);
    return {.status = ExitSuccess,
            .output = {},
            .messages = session.state().archiveMessage().value_or(QString()) + QLatin1Char('\n')};
}

CommandResult disable(const Platform &platform)
{
    const auto session = ArchiveSession::open(platform);
    if (!session)
        return failed(session.error());
    const auto status = (*session)->fetchArchiveStatus();
    if (!status)
        return failed(status.error().localizedDescription);
    if (status->archiveVaultId.isEmpty())
        return failed(QStringLiteral("There is no archive to pause. `ostrel archive enable` makes one."));
    return perform(**session, [](ArchiveArea &archive) { archive.disableArchive(); });
}

Result<QString> readKey(const std::optional<QString> &keyFile)
{
    if (!keyFile)
        return readStandardInput(QStringLiteral("the recovery key"), InputEcho::Hidden);
    const auto bytes = readFile(*keyFile);
    if (!bytes)
        return std::unexpected(bytes.error());
    if (bytes->size() > longestInput)
        return std::unexpected(
            faultError(Fault::FileFailed, QStringLiteral("%1 (it is too long for a recovery key)").arg(*keyFile)));
    return QString::fromUtf8(*bytes);
}

CommandResult recover(const ArchiveOptions &options, const Platform &platform)
{
    const auto key = readKey(options.keyFile);
    if (!key)
        return CommandResult::failure(ExitUsage, key.error().localizedDescription);
    // Before an observer is started for nothing.
    if (trimmedBlanksAndNewlines(*key).isEmpty())
        return CommandResult::failure(ExitUsage, QStringLiteral("Recovery key is required"));
    const auto session = ArchiveSession::open(platform);
    if (!session)
        return failed(session.error());
    return perform(**session, [&key](ArchiveArea &archive) { archive.recoverArchive(*key); });
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    if (const auto complaint = complaintAbout(parser))
        return usageError(commandName, *complaint);
    const auto options = readOptions(parser);
    if (!options)
        return usageError(commandName, options.error());
    const QString action = parser.positionalArguments().value(1);
    if (action == targetAction)
        return archiveTarget(parser, platform);
    if (action == statusAction)
        return showStatus(*options, platform);
    if (action == enableAction)
        return enableArchive(*options, platform);
    if (action == recoverAction)
        return recover(*options, platform);
    if (action == exportAction)
        return exportArchive(*options, platform);
    return disable(platform);
}

} // namespace

QString absoluteFromHere(const QString &path)
{
    const bool inHome = path == QLatin1String("~") || path.startsWith(QLatin1String("~/"));
    return inHome ? path : QDir::cleanPath(QDir::current().absoluteFilePath(path));
}

Command archiveCommand()
{
    const QString day = QStringLiteral("DAY");
    return {
        .name = commandName,
        .description =
            QStringLiteral("Shows, places, switches, recovers or exports the encrypted archive of the footage."),
        .arguments =
            {{.name = QStringLiteral("action"),
              .description = QStringLiteral(
                  "status: what there is; only reads. enable: makes a vault, prints its recovery key, which is "
                  "shown only once, and turns the archive on when you type the key's last six characters; or "
                  "goes on with a paused one. disable: pauses uploads. recover: opens a vault of yours with its "
                  "key, read from standard input. export: decrypts footage into a folder; Ctrl+C cancels it. target: "
                  "where the archive lies; with folder PATH, s3 BUCKET or rclone REMOTE:PATH it lies there."),
              .syntax = allActions.join(u'|')}},
        .options =
            QList<QCommandLineOption>{
                {keyFileOption,
                 QStringLiteral("enable: write the key to FILE, which must not exist yet, instead of printing it. "
                                "recover: read it from there."),
                 QStringLiteral("FILE")},
                {fromOption, QStringLiteral("export: the first day, seven days ago unless told."), day},
                {toOption, QStringLiteral("export: the last day, today unless told."), day},
                {intoOption, QStringLiteral("export: the folder that it goes into."), QStringLiteral("DIR")},
                jsonOption()} +
            archiveTargetOptions(),
        .run = run,
        .wordsMayBeSecret = true};
}

} // namespace ostrel
