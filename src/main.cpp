#include "ProgramPlatform.h"
#include "app/CommandLine.h"
#include "app/NoDialogs.h"
#include "app/StandardDescriptors.h"

#include <array>
#include <unistd.h>

using namespace ostrel;

namespace {

/// The panel is a program of its own beside this one: its toolkit would cost every command and every recording in a
/// terminal 10 MB of memory and half of their start.
CommandResult becomePanel()
{
    QByteArray program = (QCoreApplication::applicationDirPath() + QStringLiteral("/ostrel-panel")).toLocal8Bit();
    const std::array<char *, 2> arguments{program.data(), nullptr};
    ::execv(program.constData(), arguments.data());
    return CommandResult::failure(
        ExitFailed, QStringLiteral("The panel can't be started: %1 is missing or can't be run. Install Tamsk Ostrel "
                                   "again; `ostrel record` records meanwhile.")
                        .arg(QString::fromLocal8Bit(program)));
}

} // namespace

int main(int argc, char **argv)
{
    fillClosedStandardDescriptors();
    QCoreApplication application(argc, argv);
    describeProgram();
    if (argc <= 1 && (qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY")))
        return printResult(becomePanel());
    NoDialogs dialogs;
    return withPlatform(dialogs, [](const Platform &platform) {
        return printResult(runCommandLine(QCoreApplication::arguments(), platform));
    });
}
