#include "app/Json.h"
#include "app/ListedDisplays.h"
#include "app/commands/Commands.h"
#include "capture/DisplayList.h"
#include "context/AccessibilityAccess.h"
#include "context/ActiveApplicationContext.h"
#include "context/ForegroundSource.h"

#include <QJsonArray>
#include <QJsonObject>

namespace ostrel {

namespace {

/// One sample, and what no sample on this desktop could tell.
struct ContextReport {
    ActiveRecordingContext context;
    QList<UnavailableFact> unavailable;
};

QString asText(const ContextReport &report)
{
    const ActiveRecordingContext &context = report.context;
    QString text = context.appContextText.value_or(QStringLiteral("No application is in front.")) + QLatin1Char('\n');
    if (context.activeDisplay)
        text += QStringLiteral("Active display: %1, by %2\n")
                    .arg(context.activeDisplay->displayLabel, context.activeDisplay->reason == QLatin1String("mouse")
                                                                  ? QStringLiteral("the mouse")
                                                                  : QStringLiteral("the focused window"));
    for (const UnavailableFact &each : report.unavailable)
        text += each.text() + QLatin1Char('\n');
    return text;
}

QJsonObject asJson(const ContextReport &report)
{
    const ActiveRecordingContext &context = report.context;
    QJsonValue display(QJsonValue::Null);
    if (context.activeDisplay)
        display = QJsonObject{{QStringLiteral("displayId"), context.activeDisplay->displayId},
                              {QStringLiteral("displayLabel"), context.activeDisplay->displayLabel},
                              {QStringLiteral("reason"), context.activeDisplay->reason}};
    QJsonArray unavailable;
    for (const UnavailableFact &each : report.unavailable)
        unavailable.append(QJsonObject{{QStringLiteral("fact"), each.fact}, {QStringLiteral("reason"), each.reason}});
    return {{QStringLiteral("appContextText"), orNull(context.appContextText)},
            {QStringLiteral("activeDisplay"), display},
            {QStringLiteral("unavailable"), unavailable}};
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const auto content = listedDisplays(platform.displays);
    if (!content)
        return CommandResult::failure(ExitFailed, content.error().localizedDescription);
    const auto displays = orderedDisplays(content->displays, content->mainDisplayId);
    ActiveApplicationContext reader({.foreground = platform.foreground,
                                     .accessibility = platform.contextAccessibility,
                                     .tree = platform.accessibilityTree,
                                     .browserScripts = platform.browserScripts,
                                     .excludesWindow = platform.excludesWindow});
    const ContextReport report = {
        .context = reader.currentRecordingContext(activeDisplayCandidates(displays, content->mainDisplayId)),
        .unavailable = platform.foreground.unavailableFacts()};

    CommandResult result =
        CommandResult::data(parser.isSet(jsonOption()) ? jsonDocument(asJson(report)) : asText(report));
    if (!platform.contextAccessibility.isTrusted())
        result.messages = QStringLiteral("Window and page names are left out: accessibility is not granted. "
                                         "`ostrel permissions allow recordingContext` grants it.\n");
    return result;
}

} // namespace

Command contextCommand()
{
    return {.name = QStringLiteral("context"),
            .description = QStringLiteral("Prints what a frame taken now would say about the foreground."),
            .arguments = {},
            .options = {jsonOption()},
            .run = run};
}

} // namespace ostrel
