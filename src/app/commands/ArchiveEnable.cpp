#include "app/ArchiveSession.h"
#include "app/CommandLine.h"
#include "app/StandardInput.h"
#include "app/commands/ArchiveActions.h"
#include "base/Files.h"
#include "base/Text.h"

#include <QFileInfo>

namespace ostrel {

namespace {

constexpr int confirmationAttempts = 3;
constexpr qsizetype confirmationLength = 6;

CommandResult failed(const QString &words)
{
    return CommandResult::failure(ExitFailed, words);
}

/// Shows the key, or writes it where it was wished. @return why not
std::optional<QString> hand(const QString &key, const std::optional<QString> &keyFile)
{
    const auto handed =
        keyFile ? writeNewFile(*keyFile, (key + QLatin1Char('\n')).toUtf8()) : printData(key + QLatin1Char('\n'));
    if (!handed)
        return handed.error().localizedDescription;
    printMessage(keyFile ? QStringLiteral("The recovery key is in %1.\n").arg(*keyFile)
                         : QStringLiteral("This is the recovery key. It's shown only once.\n"));
    printMessage(
        QStringLiteral("Without this key, archived footage cannot be recovered: keep it somewhere safe, and not "
                       "on this machine alone.\n"));
    return std::nullopt;
}

/// Has the user type what only somebody who has the key knows. @return why it is not confirmed
std::optional<QString> confirm(const QString &key)
{
    for (int attempt = 0; attempt < confirmationAttempts; ++attempt) {
        printMessage(QStringLiteral("When it is kept, type its last %1 characters: ").arg(confirmationLength));
        const auto typed = readStandardInputLine();
        if (!typed)
            return typed.error().localizedDescription;
        if (trimmedBlanksAndNewlines(*typed) == key.right(confirmationLength))
            return std::nullopt;
        printMessage(QStringLiteral("Those are not its last characters.\n"));
    }
    return QStringLiteral("It was not confirmed that the key is kept.");
}

CommandResult resume(ArchiveSession &session)
{
    if (const auto error = session.perform([](ArchiveArea &archive) { archive.resumeArchive(); }))
        return failed(*error);
    return {.status = ExitSuccess,
            .output = {},
            .messages = QStringLiteral("Archive uploads resumed. The recovery key is the one that you have.\n")};
}

CommandResult createVault(ArchiveSession &session, const std::optional<QString> &keyFile)
{
    const auto prepare = [](ArchiveArea &archive) {
        archive.beginArchiveWizard();
        archive.archiveWizardContinue();
    };
    if (const auto error = session.perform(prepare))
        return failed(*error);
    const QString key = session.archive().archiveRecoveryKey().value_or(QString());
    if (const auto failure = hand(key, keyFile))
        return failed(QStringLiteral("%1 The archive was not turned on.").arg(*failure));
    if (const auto failure = confirm(key))
        return failed(QStringLiteral("%1 The archive was not turned on, and this key opens nothing: the next `ostrel "
                                     "archive enable` makes another.")
                          .arg(*failure));
    const auto turnOn = [](ArchiveArea &archive) {
        archive.archiveWizardNext();
        archive.setArchiveKeySavedConfirmed(true);
        archive.archiveWizardTurnOn();
    };
    if (const auto error = session.perform(turnOn))
        return failed(
            QStringLiteral("%1 Whether the archive is on says `ostrel archive status`; keep the key until then.")
                .arg(*error));
    return {.status = ExitSuccess, .output = {}, .messages = QStringLiteral("The archive is on.\n")};
}

} // namespace

CommandResult enableArchive(const ArchiveOptions &options, const Platform &platform)
{
    // Before a key is made that could not be kept.
    if (options.keyFile && (QFileInfo::exists(*options.keyFile) || QFileInfo(*options.keyFile).isSymLink()))
        return CommandResult::failure(
            ExitUsage,
            QStringLiteral("\"%1\" exists already; a new key never takes a file's place.").arg(*options.keyFile));
    const auto session = ArchiveSession::open(platform);
    if (!session)
        return failed(session.error());
    const auto status = (*session)->fetchArchiveStatus();
    if (!status)
        return failed(status.error().localizedDescription);
    if (status->archiveEnabled)
        return {.status = ExitSuccess, .output = {}, .messages = QStringLiteral("The archive is on already.\n")};
    return status->archiveVaultId.isEmpty() ? createVault(**session, options.keyFile) : resume(**session);
}

} // namespace ostrel
