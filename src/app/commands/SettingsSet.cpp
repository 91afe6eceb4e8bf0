#include "app/commands/SettingsSet.h"

#include "app/Command.h"
#include "app/RecorderLock.h"
#include "app/RunningApplication.h"
#include "app/SettingChanges.h"
#include "app/StandardInput.h"
#include "base/Text.h"
#include "observer/SettingRules.h"

#include <expected>
#include <optional>

namespace ostrel {

namespace {

using Outcome = SettingAnswer::Outcome;

const QString fromStandardInput = QStringLiteral("-");

CommandResult refusal(const QString &message)
{
    return usageError(QStringLiteral("settings"), message);
}

QString secretUsage(const QString &key)
{
    return QStringLiteral("`ostrel settings set %1 - < FILE`").arg(key);
}

/// The key is none. What stands behind a "=" may be a secret, and is never repeated.
QString complaintAboutKey(const QString &word)
{
    const QString key = word.section(u'=', 0, 0);
    if (SettingRules::isKey(key))
        return QStringLiteral("A blank stands between a setting and its value, no \"=\": %1.")
            .arg(SettingRules::isSecret(key) ? secretUsage(key)
                                             : QStringLiteral("`ostrel settings set %1 VALUE`").arg(key));
    return QStringLiteral("There is no setting \"%1\"; the nearest is %2. `ostrel settings show` lists them all.")
        .arg(harmless(key), SettingRules::nearestKey(key));
}

/// What is wrong with the words, as far as it shows before the value is read.
std::optional<QString> complaintAbout(const QStringList &words)
{
    if (words.isEmpty())
        return QStringLiteral("Say which setting, and its value. `ostrel settings show` lists them all.");
    const QString &key = words[0];
    if (!SettingRules::isKey(key))
        return complaintAboutKey(key);
    if (words.size() == 1 || SettingRules::isObservers(key))
        return QStringLiteral("%1 takes %2.").arg(key, SettingRules::takes(key));
    if (SettingRules::isSecret(key) && (words.size() > 2 || words[1] != fromStandardInput))
        return QStringLiteral("Other users can see what stands on a command line, so %1 is read from standard input: "
                              "%2.")
            .arg(key, secretUsage(key));
    if (words.size() > 2)
        return QStringLiteral("%1 takes one word; put quotes around a value with blanks.").arg(key);
    // The toolkit has put this character where the bytes were no text. Whoever means it uses standard input.
    if (words[1].contains(QChar::ReplacementCharacter))
        return QStringLiteral("The value of %1 is not valid UTF-8.").arg(key);
    if (words[1].toUtf8().size() > longestInput)
        return QStringLiteral("The value of %1 has more than the %2 bytes that a value may have.")
            .arg(key)
            .arg(longestInput);
    return std::nullopt;
}

/// The words of a successful change.
QString successText(const SettingChange &change, Outcome outcome)
{
    const bool removed = SettingRules::isSecret(change.key) && trimmedBlanksAndNewlines(change.value).isEmpty();
    QString done =
        removed ? QStringLiteral("%1 is removed.").arg(change.key) : QStringLiteral("%1 is saved.").arg(change.key);
    if (outcome == Outcome::NextRecording)
        return done + QStringLiteral(" The recording under way goes on without it; it applies from the next one on.");
    if (outcome == Outcome::RecordingEnds)
        return done + QStringLiteral(" This ends the recording under way, as the observer moves to the new port. "
                                     "Nothing of it is lost; start it again when it has ended.");
    return done;
}

CommandResult resultOf(const SettingChange &change, const SettingAnswer &answer)
{
    if (answer.outcome == Outcome::Refused)
        return refusal(answer.words);
    if (answer.outcome == Outcome::NotSaved)
        return CommandResult::failure(ExitFailed, answer.words);
    QString messages = successText(change, answer.outcome) + QLatin1Char('\n');
    if (!answer.words.isEmpty())
        messages += answer.words + QLatin1Char('\n');
    return {.status = ExitSuccess, .output = {}, .messages = messages};
}

CommandResult unreachable(const RecorderLock::Holder &recorder, RemoteFailure failure)
{
    const QString who = QStringLiteral("Process %1 records, and it keeps the settings").arg(recorder.processId);
    const QString stopIt = QStringLiteral("stop the recorder first, with Ctrl+C where it runs or with "
                                          "`kill %1`. Nothing was changed.")
                               .arg(recorder.processId);
    switch (failure) {
    case RemoteFailure::NoBus:
        return CommandResult::failure(
            ExitFailed,
            QStringLiteral("%1. Without a session bus it can't be told: run this in its desktop session, or %2")
                .arg(who, stopIt));
    case RemoteFailure::NotThere:
        return CommandResult::failure(
            ExitFailed,
            QStringLiteral("%1. It is not on this session's bus, so it can't be told: run this in its desktop "
                           "session, or %2")
                .arg(who, stopIt));
    case RemoteFailure::NotTheRecorder:
        return CommandResult::failure(
            ExitFailed, QStringLiteral("%1. Another program poses as it on the session bus, and was told nothing: %2")
                            .arg(who, stopIt));
    case RemoteFailure::Silent:
        return CommandResult::failure(
            ExitFailed, QStringLiteral("%1. It has not answered in time. `ostrel settings show` tells whether it has "
                                       "saved the value all the same.")
                            .arg(who));
    case RemoteFailure::Broken:
        break;
    }
    return CommandResult::failure(
        ExitFailed, QStringLiteral("%1. It gave no answer that could be used; is it of another version? "
                                   "`ostrel settings show` tells whether it has saved the value all the same.")
                        .arg(who));
}

/// Through the recorder where one runs, else on the disk.
CommandResult change(const SettingChange &wanted, const Platform &platform)
{
    // Again only where a recorder has come or gone in between.
    constexpr int attempts = 3;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const auto recorder = RecorderLock::holder();
        if (!recorder) {
            if (const auto answer = changeOnDisk(platform.secrets, wanted))
                return resultOf(wanted, *answer);
            continue;
        }
        const auto answer = platform.runningApplication.changeSetting(recorder->processId, wanted);
        if (answer)
            return resultOf(wanted, *answer);
        const auto now = RecorderLock::holder();
        if (now && now->processId == recorder->processId)
            return unreachable(*recorder, answer.error());
    }
    return CommandResult::failure(ExitFailed, QStringLiteral("Recorders come and go too quickly. Try again."));
}

} // namespace

CommandResult setSetting(const QStringList &words, const Platform &platform)
{
    if (const auto complaint = complaintAbout(words))
        return refusal(*complaint);
    SettingChange wanted{.key = words[0], .value = words[1]};
    if (wanted.value == fromStandardInput) {
        const InputEcho echo = SettingRules::isSecret(wanted.key) ? InputEcho::Hidden : InputEcho::Shown;
        const auto text = readStandardInput(wanted.key, echo);
        if (!text)
            return CommandResult::failure(ExitUsage, text.error().localizedDescription);
        wanted.value = *text;
    }
    ObserverSettings trial = ObserverSettings::defaults();
    if (const auto fits = SettingRules::assign(trial, wanted.key, wanted.value); !fits)
        return refusal(fits.error());
    return change(wanted, platform);
}

} // namespace ostrel
