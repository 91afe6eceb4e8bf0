#include "app/Json.h"
#include "app/ObserverQuestion.h"
#include "app/ObserverStatusText.h"
#include "app/RecorderLock.h"
#include "app/RunningApplication.h"
#include "app/commands/Commands.h"
#include "observer/SettingsOnDisk.h"
#include "observer/SettingsStore.h"

#include <QJsonObject>

namespace ostrel {

namespace {

/// What the program that records tells its user, who may not be looking: that capture has stalled, as an example.
std::optional<QString> recorderComplaint(RunningApplication &application)
{
    const auto holder = RecorderLock::holder();
    if (!holder)
        return std::nullopt;
    const auto complaint = application.complaint(holder->processId);
    return complaint && !complaint->isEmpty() ? std::optional(*complaint) : std::nullopt;
}

CommandResult statusResult(const ObserverStatus &status, const std::optional<QString> &complaint, bool isJson)
{
    if (isJson) {
        QJsonObject json = statusJson(status);
        json.insert(QStringLiteral("recorderError"), orNull(complaint));
        return CommandResult::data(jsonDocument(json));
    }
    return CommandResult::data(statusText(status, QDateTime::currentDateTime(), complaint));
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const SettingsOnDisk settings = readSettingsOnDisk();
    const ObserverAnswer answer = askObserver(platform.secrets, settings.settings);
    CommandResult result;
    if (answer.reach == ObserverReach::Answers)
        result =
            statusResult(*answer.status, recorderComplaint(platform.runningApplication), parser.isSet(jsonOption()));
    else
        result = CommandResult::failure(ExitFailed, inOneLine(adviceOn(answer)));
    // The port that was asked is another one than the file says.
    if (settings.primaryFault)
        result.messages.prepend(QStringLiteral("ostrel: %1 is left aside: %2\n")
                                    .arg(SettingsStore::primaryFile(), settings.primaryFault->localizedDescription));
    return result;
}

} // namespace

Command statusCommand()
{
    return {.name = QStringLiteral("status"),
            .description = QStringLiteral("Prints what the observer is doing."),
            .arguments = {},
            .options = {jsonOption()},
            .run = run};
}

} // namespace ostrel
