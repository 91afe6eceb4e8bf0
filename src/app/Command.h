#pragma once

#include "app/CommandResult.h"
#include "app/Platform.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QList>
#include <QString>
#include <functional>
#include <optional>

namespace ostrel {

/// A word after the command's name.
struct CommandArgument {
    QString name;
    QString description;
    QString syntax; ///< as help shows it, in brackets where it may be left out
};

/// One command of the program, as data for the parser and for help.
struct Command {
    QString name;
    QString description;
    QList<CommandArgument> arguments;
    QList<QCommandLineOption> options;
    std::function<CommandResult(const QCommandLineParser &, const Platform &)> run;
    /// Words from this one on, counted behind the command's name, are values: one that begins with "-" is no option
    /// unless it asks for help, and they may be secrets, so no message repeats them. The command counts them itself.
    std::optional<qsizetype> valuesFrom = {};
    /// Somebody might put a secret where no word belongs: no message repeats a word, and the command counts them
    /// itself.
    bool wordsMayBeSecret = false;
};

/// "--json", which every command that prints data has.
QCommandLineOption jsonOption();

/// The command was called with words that it doesn't take.
CommandResult usageError(const QString &command, const QString &message);

} // namespace ostrel
