#include "app/Json.h"
#include "app/RunTask.h"
#include "app/commands/Commands.h"
#include "base/SerialQueue.h"
#include "model/ModelState.h"
#include "model/PermissionsArea.h"
#include "observer/SettingsStore.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>

namespace ostrel {

namespace {

const QString commandName = QStringLiteral("permissions");

QString asText(const QList<PermissionPromptItem> &items)
{
    QString text;
    for (const PermissionPromptItem &item : items)
        text += QStringLiteral("%1 %2 %3 %4 (%5)\n")
                    .arg(item.granted ? QStringLiteral("granted") : QStringLiteral("missing"), -8)
                    .arg(rawValue(item.kind), -17)
                    .arg(rawValue(item.requirement), -12)
                    .arg(item.title, item.detail);
    return text;
}

QJsonArray asJson(const QList<PermissionPromptItem> &items)
{
    QJsonArray array;
    for (const PermissionPromptItem &item : items)
        array.append(QJsonObject{{QStringLiteral("kind"), rawValue(item.kind)},
                                 {QStringLiteral("title"), item.title},
                                 {QStringLiteral("detail"), item.detail},
                                 {QStringLiteral("requirement"), rawValue(item.requirement)},
                                 {QStringLiteral("granted"), item.granted}});
    return array;
}

bool isGranted(const QList<PermissionPromptItem> &items, AppPermissionKind kind)
{
    return std::ranges::any_of(items, [&](const auto &item) { return item.kind == kind && item.granted; });
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const QStringList words = parser.positionalArguments().mid(1);
    const auto kind = permissionKindFromRawValue(words.value(1));
    if (!words.isEmpty() && words[0] != QLatin1String("allow"))
        return usageError(commandName, QStringLiteral("\"%1\" is not an action; there is: allow KIND.").arg(words[0]));
    if (!words.isEmpty() && !kind)
        return usageError(commandName, QStringLiteral("allow takes screenRecording, fileAccess or recordingContext."));

    const ModelState state(SettingsStore(platform.secrets).load());
    SerialQueue worker(QStringLiteral("com.tamsk.ostrel.worker"));
    PermissionsArea area({.state = state,
                          .worker = worker,
                          .requestQueue = worker,
                          .screenCapture = platform.screenCaptureAccess,
                          .accessibility = platform.permissionAccessibility,
                          .defaults = platform.userDefaults,
                          .systemSettings = platform.settingsOpener});
    if (kind)
        runToEnd([&](std::stop_token stop) { return area.requestPermission(*kind, stop); });

    const auto items = area.permissionPromptItems();
    CommandResult result =
        CommandResult::data(parser.isSet(jsonOption()) ? jsonDocument(asJson(items)) : asText(items));
    if (kind && !isGranted(items, *kind)) {
        result.status = ExitFailed;
        result.messages = QStringLiteral("ostrel: %1 could not be granted from here.\n").arg(rawValue(*kind));
    }
    return result;
}

} // namespace

Command permissionsCommand()
{
    return {.name = commandName,
            .description = QStringLiteral("Shows what is granted, or asks for one of the grants."),
            .arguments = {{.name = QStringLiteral("action"),
                           .description = QStringLiteral("allow: ask for a grant as its button would."),
                           .syntax = QStringLiteral("[allow")},
                          {.name = QStringLiteral("kind"),
                           .description = QStringLiteral("screenRecording, fileAccess or recordingContext."),
                           .syntax = QStringLiteral("KIND]")}},
            .options = {jsonOption()},
            .run = run};
}

} // namespace ostrel
