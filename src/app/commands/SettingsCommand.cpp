#include "app/commands/Commands.h"
#include "app/commands/SettingsSet.h"
#include "observer/Keyring.h"
#include "observer/SecretStore.h"
#include "observer/SettingsFields.h"
#include "observer/SettingsStore.h"

#include <QLocale>

#include <optional>

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

/// Why the keyring may hold what it doesn't show, and what its user does about it; nothing where it hides nothing.
std::optional<QString> hidingReason(KeyringState state)
{
    switch (state) {
    case KeyringState::Locked:
        return QStringLiteral("the keyring is locked; unlock it and run this again");
    case KeyringState::ServiceSilent:
    case KeyringState::BusSilent:
        return QStringLiteral("the keyring does not answer; it may wait for you to unlock it");
    case KeyringState::Failed:
        return QStringLiteral("the keyring refuses to be read; `ostrel doctor` tells more");
    case KeyringState::Ready:
    case KeyringState::NoDefaultCollection:
    case KeyringState::NoService:
    case KeyringState::NoBus:
        break;
    }
    return std::nullopt;
}

/// A line about the secrets that are shown as not set because they can't be seen; nothing where there are none.
QString hiddenSecretsText(const ObserverSettings &settings, const Platform &platform)
{
    QStringList hidden;
    const auto look = [&](const char *key, const QString &shown, const QString &service) {
        if (shown.isEmpty() && !platform.secrets.lookUp(service, secretAccount))
            hidden.append(QLatin1String(key));
    };
    look("analysisApiToken", settings.analysisApiToken, analysisApiTokenService);
    look("byokGoogleVertexApiKey", settings.byokGoogleVertexApiKey, vertexApiKeyService);
    const auto reason = hidden.isEmpty() ? std::nullopt : hidingReason(platform.keyring.state());
    if (!reason)
        return {};
    return QStringLiteral("ostrel: Whether there is a value for %1 can't be seen: %2.\n")
        .arg(hidden.join(QLatin1String(" and ")), *reason);
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
    CommandResult result =
        CommandResult::data(parser.isSet(jsonOption()) ? QString::fromUtf8(settings.toPrettyJson()) : asText(settings));
    result.messages = hiddenSecretsText(settings, platform);
    return result;
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
