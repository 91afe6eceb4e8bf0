#include "app/Json.h"
#include "app/commands/Commands.h"
#include "app/doctor/Check.h"
#include "app/doctor/GatherFacts.h"

namespace ostrel {

namespace {

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const DoctorReport report = examine(gatherFacts(platform));
    CommandResult result =
        CommandResult::data(parser.isSet(jsonOption()) ? jsonDocument(reportJson(report)) : reportText(report));
    result.status = canRecord(report) ? ExitSuccess : ExitFailed;
    return result;
}

} // namespace

Command doctorCommand()
{
    return {.name = QStringLiteral("doctor"),
            .description = QStringLiteral("Says what works on this desktop, and what to do about what doesn't."),
            .arguments = {},
            .options = {jsonOption()},
            .run = run};
}

} // namespace ostrel
