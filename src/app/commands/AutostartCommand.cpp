#include "app/Json.h"
#include "app/commands/Commands.h"
#include "model/Autostart.h"

#include <QJsonObject>

namespace ostrel {

namespace {

const QString commandName = QStringLiteral("autostart");

CommandResult status(const Autostart &autostart, bool asJson)
{
    const bool isOn = autostart.isOn();
    if (asJson)
        return CommandResult::data(jsonDocument(QJsonObject{{QStringLiteral("autostart"), isOn}}));
    return CommandResult::data(isOn ? QStringLiteral("on\n") : QStringLiteral("off\n"));
}

CommandResult turn(Autostart &autostart, bool on)
{
    const auto turned = autostart.turn(on);
    return turned ? CommandResult{} : CommandResult::failure(ExitFailed, turned.error().localizedDescription);
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const QString action = parser.positionalArguments().value(1);
    if (parser.isSet(jsonOption()) && action != QLatin1String("status"))
        return usageError(commandName, QStringLiteral("--json belongs to status."));
    if (action == QLatin1String("status"))
        return status(platform.autostart, parser.isSet(jsonOption()));
    if (action == QLatin1String("on") || action == QLatin1String("off"))
        return turn(platform.autostart, action == QLatin1String("on"));
    return usageError(commandName,
                      action.isEmpty()
                          ? QStringLiteral("Say what to do: on, off or status.")
                          : QStringLiteral("\"%1\" is not an action; there are: on, off, status.").arg(action));
}

} // namespace

Command autostartCommand()
{
    return {.name = commandName,
            .description = QStringLiteral("Has the icon and its panel started when you log in, or not."),
            .arguments = {{.name = QStringLiteral("action"),
                           .description = QStringLiteral("on, off, or status: prints which of the two it is."),
                           .syntax = QStringLiteral("on|off|status")}},
            .options = {jsonOption()},
            .run = run};
}

} // namespace ostrel
