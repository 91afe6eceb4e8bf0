#include "app/CommandLine.h"
#include "app/Json.h"
#include "app/RunTask.h"
#include "app/commands/Commands.h"
#include "base/Clock.h"
#include "base/SerialQueue.h"
#include "base/Text.h"
#include "update/FeedUpdater.h"
#include "update/UpdateFault.h"

#include <QJsonObject>

namespace ostrel {

namespace {

CommandResult failed(const Error &error)
{
    return CommandResult::failure(ExitFailed, error.localizedDescription);
}

QJsonObject asJson(const InstalledProgram &program, const std::optional<Release> &newer)
{
    const QString notes = newer ? newer->notes : QString();
    return {{QStringLiteral("version"), program.version()->text()},
            {QStringLiteral("newerVersion"), orNull(newer ? std::optional(newer->version.text()) : std::nullopt)},
            {QStringLiteral("notes"), orNull(notes.isEmpty() ? std::nullopt : std::optional(notes))},
            {QStringLiteral("installsItself"), program.installation.has_value()}};
}

QString asText(const InstalledProgram &program, const std::optional<Release> &newer)
{
    const QString version = program.version()->text();
    if (!newer)
        return QStringLiteral("Version %1 is the newest.\n").arg(version);
    const UpdateState state{.phase = UpdateState::Phase::Found,
                            .version = newer->version.text(),
                            .notes = newer->notes,
                            .installsItself = program.installation.has_value(),
                            .error = {}};
    QString text = QStringLiteral("%1 This is version %2.\n").arg(updateWords(state), version);
    if (!state.notes.isEmpty())
        text += QStringLiteral("What is new: %1\n").arg(escapedForTerminal(state.notes));
    if (state.installsItself)
        text += QStringLiteral("`ostrel update install` installs it.\n");
    return text;
}

CommandResult check(const InstalledProgram &program, const QCommandLineParser &parser, const Platform &platform)
{
    SystemClock clock;
    HttpClient http(clock);
    UpdateMemory memory(platform.userDefaults);
    FeedCheck feed(http, memory, clock);
    Result<FeedAnswer> answer;
    // It runs to its end here. NOLINTNEXTLINE(cppcoreguidelines-avoid-capturing-lambda-coroutines)
    runToEnd([&](std::stop_token stop) -> Task<> { answer = co_await feed.ask(program, stop); });
    if (!answer)
        return failed(answer.error());
    return CommandResult::data(parser.isSet(jsonOption()) ? jsonDocument(asJson(program, answer->newer))
                                                          : asText(program, answer->newer));
}

/// One search for a newer version and its installation, which is said as it goes on. Nothing is ended by it: a program
/// that runs goes on with its own version.
class InstallNow final : public UpdaterDelegate
{
public:
    InstallNow(const InstalledProgram &program, UserDefaults &defaults)
        : m_updater({.clock = m_clock,
                     .defaults = defaults,
                     .worker = m_worker,
                     .program = program,
                     .relaunch = [this](const QString &) { m_loop.quit(); }},
                    *this)
    {
        QObject::connect(&m_updater, &UpdateController::stateChanged, &m_updater, [this] { onState(); });
    }

    CommandResult run()
    {
        m_updater.checkForUpdates();
        if (!m_isOver)
            m_loop.exec();
        const UpdateState &state = m_updater.state();
        if (state.error)
            return failed(*state.error);
        if (state.phase == UpdateState::Phase::Ready)
            return CommandResult::data(
                QStringLiteral("Version %1 is installed. It runs from the next start on; `ostrel "
                               "update rollback` goes back.\n")
                    .arg(state.version));
        return CommandResult::data(updateWords(state) + QLatin1Char('\n'));
    }

    bool willInstallUpdateOnQuit(const Version & /*version*/, ImmediateInstallationBlock install) override
    {
        install();
        return true;
    }

private:
    void onState()
    {
        using Phase = UpdateState::Phase;
        const UpdateState &state = m_updater.state();
        m_isOver = state.phase == Phase::UpToDate || state.phase == Phase::Found || state.phase == Phase::Failed;
        if (m_isOver)
            m_loop.quit();
        else if (state.phase != std::exchange(m_said, state.phase) && state.phase != Phase::Ready)
            printMessage(updateWords(state) + QLatin1Char('\n'));
    }

    SystemClock m_clock;
    QEventLoop m_loop;
    bool m_isOver = false;
    UpdateState::Phase m_said = UpdateState::Phase::Idle;
    SerialQueue m_worker{QStringLiteral("com.tamsk.ostrel.update")};
    FeedUpdater m_updater;
};

CommandResult install(const InstalledProgram &program, const Platform &platform)
{
    if (!program.installation)
        return failed(updateError(UpdateFault::NotOurInstallation));
    return InstallNow(program, platform.userDefaults).run();
}

CommandResult rollBack(const InstalledProgram &program)
{
    if (!program.installation)
        return failed(updateError(UpdateFault::NotOurInstallation));
    const auto version = program.installation->rollBack();
    if (!version)
        return failed(version.error());
    return CommandResult::data(QStringLiteral("Version %1 runs from the next start on.\n").arg(version->text()));
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const QString action = parser.positionalArguments().value(1);
    if (parser.isSet(jsonOption()) && action != QLatin1String("check"))
        return usageError(QStringLiteral("update"), QStringLiteral("--json belongs to check."));
    const InstalledProgram program = platform.program();
    if (action == QLatin1String("check"))
        return check(program, parser, platform);
    if (action == QLatin1String("install"))
        return install(program, platform);
    if (action == QLatin1String("rollback"))
        return rollBack(program);
    return usageError(
        QStringLiteral("update"),
        action.isEmpty() ? QStringLiteral("Say what to do: check, install or rollback.")
                         : QStringLiteral("\"%1\" is not an action; there are: check, install, rollback.").arg(action));
}

} // namespace

Command updateCommand()
{
    return {.name = QStringLiteral("update"),
            .description = QStringLiteral("Looks for a newer version, installs it, or goes back to the previous one."),
            .arguments = {{.name = QStringLiteral("action"),
                           .description = QStringLiteral("check: says whether there is a newer version. install: "
                                                         "installs it beside this one; it runs from the next start on. "
                                                         "rollback: has the previous version run from the next start "
                                                         "on."),
                           .syntax = QStringLiteral("check|install|rollback")}},
            .options = {jsonOption()},
            .run = run};
}

} // namespace ostrel
