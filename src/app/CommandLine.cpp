#include "app/CommandLine.h"

#include "app/commands/Commands.h"
#include "base/Fault.h"

#include <QCoreApplication>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace ostrel {

namespace {

QList<Command> allCommands()
{
    return {recordCommand(),    journalCommand(), displaysCommand(), contextCommand(), permissionsCommand(),
            settingsCommand(),  archiveCommand(), statusCommand(),   doctorCommand(),  updateCommand(),
            autostartCommand(), previewCommand(), forgetCommand()};
}

QString generalHelp(const QList<Command> &commands)
{
    QString text = QStringLiteral("Tamsk Ostrel keeps a private, automatic journal of your work.\n\n"
                                  "Usage: ostrel COMMAND [OPTIONS]\n\n");
    for (const Command &command : commands)
        text += QStringLiteral("  %1 %2\n").arg(command.name, -12).arg(command.description);
    text += QStringLiteral("\n`ostrel COMMAND --help` tells more. `ostrel --version` prints the version.\n"
                           "Data goes to standard output, messages to standard error.\n"
                           "Exit status: 0 done, 1 failed, 2 wrong usage.\n");
    return text;
}

void describe(QCommandLineParser &parser, const Command &command)
{
    parser.setApplicationDescription(command.description);
    // Not the parser's own: that one comes with a --help-all for options of the toolkit, of which there are none.
    parser.addOption({{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Print this help.")});
    parser.addPositionalArgument(command.name, command.description, command.name);
    for (const CommandArgument &argument : command.arguments)
        parser.addPositionalArgument(argument.name, argument.description, argument.syntax);
    parser.addOptions(command.options);
}

/// Marks the values as such for the parser, where they would look like options.
QStringList withValuesMarked(const Command &command, QStringList arguments)
{
    const QStringList help{QStringLiteral("--help"), QStringLiteral("-h"), QStringLiteral("--")};
    // Behind the program and the command's name.
    const qsizetype first = command.valuesFrom ? *command.valuesFrom + 2 : arguments.size();
    if (first < arguments.size() && !help.contains(arguments[first]) &&
        !arguments.mid(0, first).contains(QStringLiteral("--")))
        arguments.insert(first, QStringLiteral("--"));
    return arguments;
}

CommandResult runCommand(const Command &command, const QStringList &arguments, const Platform &platform)
{
    QCommandLineParser parser;
    describe(parser, command);
    if (!parser.parse(withValuesMarked(command, arguments)))
        return usageError(command.name, parser.errorText());
    if (parser.isSet(QStringLiteral("help")))
        return CommandResult::data(parser.helpText());
    const bool countsItself = command.valuesFrom || command.wordsMayBeSecret;
    if (!countsItself && parser.positionalArguments().size() > command.arguments.size() + 1)
        return usageError(command.name, QStringLiteral("\"%1\" is one word too many.")
                                            .arg(parser.positionalArguments().value(command.arguments.size() + 1)));
    return command.run(parser, platform);
}

bool print(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    const bool written = std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream) == size_t(bytes.size());
    return std::fflush(stream) == 0 && written;
}

} // namespace

CommandResult runCommandLine(const QStringList &arguments, const Platform &platform)
{
    const QList<Command> commands = allCommands();
    const QString first = arguments.value(1);
    if (first == QLatin1String("--version"))
        return CommandResult::data(QStringLiteral("ostrel %1\n").arg(QCoreApplication::applicationVersion()));
    if (first == QLatin1String("--help") || first == QLatin1String("-h"))
        return CommandResult::data(generalHelp(commands));
    if (first.isEmpty())
        return CommandResult::failure(ExitUsage,
                                      QStringLiteral("There is no display for the icon and its panel (neither DISPLAY "
                                                     "nor WAYLAND_DISPLAY is set). `ostrel --help` lists the commands, "
                                                     "which need none or say so."));
    const auto command = std::ranges::find(commands, first, &Command::name);
    if (command == commands.end())
        return CommandResult::failure(
            ExitUsage, QStringLiteral("There is no command \"%1\". `ostrel --help` lists them.").arg(first));
    return runCommand(*command, arguments, platform);
}

int printResult(const CommandResult &result)
{
    const auto written = printData(result.output);
    printMessage(result.messages);
    if (written)
        return result.status;
    printMessage(CommandResult::failure(ExitFailed, written.error().localizedDescription).messages);
    return ExitFailed;
}

Result<> printData(const QString &text)
{
    errno = 0;
    if (print(stdout, text))
        return {};
    return std::unexpected(fileError(errno != 0 ? errno : EIO, QStringLiteral("standard output")));
}

void printMessage(const QString &text)
{
    print(stderr, text);
}

} // namespace ostrel
