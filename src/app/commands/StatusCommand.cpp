#include "app/Json.h"
#include "app/ObserverQuestion.h"
#include "app/ObserverStatusText.h"
#include "app/commands/Commands.h"
#include "observer/SettingsOnDisk.h"
#include "observer/SettingsStore.h"

namespace ostrel {

namespace {

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const SettingsOnDisk settings = readSettingsOnDisk();
    const ObserverAnswer answer = askObserver(platform.secrets, settings.settings);
    CommandResult result;
    if (answer.reach == ObserverReach::Answers)
        result =
            CommandResult::data(parser.isSet(jsonOption()) ? jsonDocument(statusJson(*answer.status))
                                                           : statusText(*answer.status, QDateTime::currentDateTime()));
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
