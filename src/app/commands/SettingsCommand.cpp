#include "app/commands/Commands.h"
#include "observer/SettingsFields.h"
#include "observer/SettingsStore.h"

#include <QLocale>

namespace ostrel {

namespace {

/// Secrets are shown as set or not set, nothing more.
ObserverSettings redacted(ObserverSettings settings)
{
    for (QString *secret : {&settings.analysisApiToken, &settings.byokGoogleVertexApiKey}) {
        if (!secret->isEmpty())
            *secret = QStringLiteral("<redacted>");
    }
    return settings;
}

QString valueText(const QString &value)
{
    return value;
}

QString valueText(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString valueText(qint64 value)
{
    return QString::number(value);
}

QString valueText(double value)
{
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

QString asText(const ObserverSettings &settings)
{
    QString text;
    eachSettingsField(settings, [&](const char *key, const auto &value) {
        text += QStringLiteral("%1 %2").arg(QString::fromLatin1(key), -35).arg(valueText(value)).trimmed();
        text += QLatin1Char('\n');
    });
    return text;
}

CommandResult run(const QCommandLineParser &parser, const Platform &platform)
{
    const QString action = parser.positionalArguments().value(1);
    if (action != QLatin1String("show"))
        return usageError(QStringLiteral("settings"),
                          action.isEmpty() ? QStringLiteral("Say what to do: show.")
                                           : QStringLiteral("\"%1\" is not an action; there is: show.").arg(action));
    const ObserverSettings settings = redacted(SettingsStore(platform.secrets).load());
    if (parser.isSet(jsonOption()))
        return CommandResult::data(QString::fromUtf8(settings.toPrettyJson()));
    return CommandResult::data(asText(settings));
}

} // namespace

Command settingsCommand()
{
    return {.name = QStringLiteral("settings"),
            .description = QStringLiteral("Shows the settings in force."),
            .arguments = {{.name = QStringLiteral("action"),
                           .description = QStringLiteral("show: all settings, secrets as \"<redacted>\"."),
                           .syntax = QStringLiteral("show")}},
            .options = {jsonOption()},
            .run = run};
}

} // namespace ostrel
