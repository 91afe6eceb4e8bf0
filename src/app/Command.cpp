#include "app/Command.h"

namespace ostrel {

QCommandLineOption jsonOption()
{
    return {QStringLiteral("json"), QStringLiteral("Print JSON instead of text.")};
}

CommandResult usageError(const QString &command, const QString &message)
{
    return CommandResult::failure(ExitUsage, QStringLiteral("%1: %2\nTry `ostrel %1 --help`.").arg(command, message));
}

} // namespace ostrel
