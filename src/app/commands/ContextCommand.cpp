#include "app/Json.h"
#include "app/commands/Commands.h"
#include "capture/DisplayList.h"
#include "context/AccessibilityAccess.h"
#include "context/ActiveApplicationContext.h"

#include <QJsonObject>

namespace ostrel {

namespace {

QString asText(const ActiveRecordingContext &context)
{
    QString text = context.appContextText.value_or(QStringLiteral("No application is in front.")) + QLatin1Char('\n');
    if (context.activeDisplay)
        text += QStringLiteral("Active display: %1, by %2\n")
                    .arg(context.activeDisplay->displayLabel, context.activeDisplay->reason == QLatin1String("mouse")
                                                                  ? QStringLiteral("the mouse")
                                                                  : QStringLiteral("the focused window"));
    return text;
}

QJsonObject asJson(const ActiveRecordingContext &context)
{
    QJsonValue display(QJsonValue::Null);
    if (context.activeDisplay)
        display = QJsonObject{{QStringLiteral("displayId"), context.activeDisplay->displayId},
                              {QStringLiteral("displayLabel"), context.activeDisplay->displayLabel},
                              {QStringLiteral("reason"), context.activeDisplay->reason}};
    return {{QStringLiteral("appContextText"), orNull(context.appContextText)},
            {QStringLiteral("activeDisplay"), display}};
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const auto content = platform.displays.shareableContent();
    if (!content)
        return CommandResult::failure(ExitFailed, content.error().localizedDescription);
    const auto displays = orderedDisplays(content->displays, content->mainDisplayId);
    ActiveApplicationContext reader(platform.foreground, platform.contextAccessibility);
    const ActiveRecordingContext context =
        reader.currentRecordingContext(activeDisplayCandidates(displays, content->mainDisplayId));

    CommandResult result =
        CommandResult::data(parser.isSet(jsonOption()) ? jsonDocument(asJson(context)) : asText(context));
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
