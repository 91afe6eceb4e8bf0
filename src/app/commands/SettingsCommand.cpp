#include "app/commands/Commands.h"
#include "app/commands/SettingsSet.h"
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
            *secret = SettingsStore::redacted;
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
    const QStringList words = parser.positionalArguments().mid(1);
    const QString action = words.value(0);
    if (action == QLatin1String("set"))
        return setSetting(words.mid(1), platform);
    if (action != QLatin1String("show"))
        return usageError(QStringLiteral("settings"),
                          action.isEmpty()
                              ? QStringLiteral("Say what to do: show, or set KEY VALUE.")
                              : QStringLiteral("\"%1\" is not an action; there are: show, set.").arg(action));
    if (words.size() > 1)
        return usageError(QStringLiteral("settings"), QStringLiteral("show takes no further words; it shows all."));
    const ObserverSettings settings = redacted(SettingsStore(platform.secrets).load());
    if (parser.isSet(jsonOption()))
        return CommandResult::data(QString::fromUtf8(settings.toPrettyJson()));
    return CommandResult::data(asText(settings));
}

} // namespace

Command settingsCommand()
{
    return {.name = QStringLiteral("settings"),
            .description = QStringLiteral("Shows the settings in force, or changes one of them."),
            .arguments = {{.name = QStringLiteral("action"),
                           .description = QStringLiteral("show: all settings, secrets as \"<redacted>\". "
                                                         "set: changes one, also while something records."),
                           .syntax = QStringLiteral("show|set")},
                          {.name = QStringLiteral("key"),
                           .description = QStringLiteral("A setting by the name that `show` gives it."),
                           .syntax = QStringLiteral("[KEY")},
                          {.name = QStringLiteral("value"),
                           .description = QStringLiteral("Its new value: true or false, a number as in 0.5, or a text. "
                                                         "\"-\" reads it from standard input; a secret is taken from "
                                                         "nowhere else, and an empty one is removed."),
                           .syntax = QStringLiteral("VALUE]")}},
            .options = {jsonOption()},
            .run = run,
            .valuesFrom = 2};
}

} // namespace ostrel
