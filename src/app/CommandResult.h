#pragma once

#include <QString>

namespace ostrel {

/// The exit statuses of the program.
enum ExitStatus { ExitSuccess = 0, ExitFailed = 1, ExitUsage = 2 };

/// What a command gives back: data for standard output, messages for standard error, the exit status.
struct CommandResult {
    int status = ExitSuccess;
    QString output;
    QString messages;

    /// Data, complete with its last line break.
    static CommandResult data(const QString &output)
    {
        return {.status = ExitSuccess, .output = output, .messages = {}};
    }
    /// One line that says what went wrong and what to do.
    static CommandResult failure(int status, const QString &message)
    {
        return {.status = status, .output = {}, .messages = QStringLiteral("ostrel: %1\n").arg(message)};
    }
};

} // namespace ostrel
