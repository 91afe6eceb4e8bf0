#include "context/BrowserTabContextReader.h"

#include "context/ActiveApplicationContext.h"

#include <QStringList>

#include <algorithm>

namespace ostrel {

const QSet<QString> &BrowserTabContextReader::chromiumBundleIdentifiers()
{
    static const QSet<QString> identifiers = {
        QStringLiteral("company.thebrowser.Browser"), QStringLiteral("com.brave.Browser"),
        QStringLiteral("com.google.Chrome"),          QStringLiteral("com.google.Chrome.beta"),
        QStringLiteral("com.google.Chrome.canary"),   QStringLiteral("com.microsoft.edgemac"),
        QStringLiteral("com.operasoftware.Opera"),    QStringLiteral("com.vivaldi.Vivaldi"),
    };
    return identifiers;
}

std::optional<ActiveBrowserTabContext> BrowserTabContextReader::read(const ForegroundApplication &application,
                                                                     const std::optional<QString> &windowTitle,
                                                                     QDeadlineTimer deadline)
{
    const auto &identifier = application.bundleIdentifier;
    if (!identifier || !chromiumBundleIdentifiers().contains(*identifier))
        return std::nullopt;
    return parse(m_runner.run({.bundleIdentifier = *identifier,
                               .processIdentifier = application.processIdentifier,
                               .windowTitle = windowTitle},
                              script(*identifier), deadline));
}

QString BrowserTabContextReader::script(const QString &bundleIdentifier)
{
    QString escaped = bundleIdentifier;
    // Backslashes first: those that then escape the quotation marks must stay single.
    escaped.replace(u'\\', QStringLiteral("\\\\"));
    escaped.replace(u'"', QStringLiteral("\\\""));
    const QStringList lines = {QStringLiteral("tell application id \"") + escaped + u'"',
                               QStringLiteral("    if (count of windows) is 0 then return \"\""),
                               QStringLiteral("    set tabURL to URL of active tab of front window"),
                               QStringLiteral("    set tabTitle to title of active tab of front window"),
                               QStringLiteral("    return tabURL & linefeed & tabTitle"),
                               QStringLiteral("end tell")};
    return lines.join(u'\n');
}

std::optional<ActiveBrowserTabContext> BrowserTabContextReader::parse(const std::optional<QString> &output)
{
    if (!output)
        return std::nullopt;
    const auto normalize = [](const QString &line) { return ActiveApplicationContext::normalize(line); };
    const QStringList lines = output->split(u'\n');
    const bool saysSomething =
        std::ranges::any_of(lines, [&](const QString &line) { return normalize(line).has_value(); });
    if (!saysSomething)
        return std::nullopt;
    return ActiveBrowserTabContext{.url = normalize(lines.first()), .title = normalize(lines.value(1))};
}

} // namespace ostrel
