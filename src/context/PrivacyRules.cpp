#include "context/PrivacyRules.h"

#include "context/BuiltInPrivacyRules.h"

#include <QUrl>

#include <algorithm>

namespace ostrel {

namespace {

/// Whether a name is the class's instance, its class, or all of it. Either part may contain blanks.
bool isPartOf(const QString &windowClass, const QString &name)
{
    if (name.isEmpty())
        return false;
    return windowClass.compare(name, Qt::CaseInsensitive) == 0 ||
           windowClass.startsWith(name + QLatin1Char(' '), Qt::CaseInsensitive) ||
           windowClass.endsWith(QLatin1Char(' ') + name, Qt::CaseInsensitive);
}

bool isApplication(const WindowIdentity &window, const QString &desktopId)
{
    if (window.bundleIdentifier && window.bundleIdentifier->compare(desktopId, Qt::CaseInsensitive) == 0)
        return true;
    return isPartOf(window.windowClass, desktopId) ||
           isPartOf(window.windowClass, desktopId.section(QLatin1Char('.'), -1));
}

/// Of an endless title both ends are searched: what marks a private window stands at one of them.
QString searchedPart(const QString &title)
{
    constexpr qsizetype enough = 2'000;
    return title.size() <= 2 * enough ? title : title.left(enough) + title.right(enough);
}

bool isFound(const QRegularExpression &pattern, const QString &title)
{
    const QRegularExpressionMatch match = pattern.match(title);
    return match.hasMatch() || !match.isValid();
}

/// An address, also one without a scheme, as it may stand in a rule.
QUrl asAddress(const QString &text)
{
    const bool hasScheme = text.contains(QLatin1String("://"));
    return QUrl(hasScheme ? text : QLatin1String("https://") + text);
}

QString hostOf(const QUrl &address)
{
    const QString host = address.host().toLower();
    const QString www = QStringLiteral("www.");
    return host.startsWith(www) ? host.mid(www.size()) : host;
}

/// Whether a path is the other one or lies below it.
bool isBelow(const QString &path, QString above)
{
    while (above.endsWith(u'/'))
        above.chop(1);
    return above.isEmpty() || path == above || path.startsWith(above + u'/');
}

bool isOnSite(const QUrl &page, const QString &site)
{
    const QUrl rule = asAddress(site.trimmed());
    const QString ruled = hostOf(rule);
    const QString host = hostOf(page);
    if (ruled.isEmpty() || (host != ruled && !host.endsWith(u'.' + ruled)))
        return false;
    return isBelow(page.path(), rule.path());
}

template <class List>
List joined(List first, const List &second)
{
    for (const auto &entry : second) {
        if (!first.contains(entry))
            first.append(entry);
    }
    return first;
}

} // namespace

PrivacyRules PrivacyRules::builtIn()
{
    PrivacyRules rules{.desktopIds = builtInApplications(), .windowClasses = builtInWindowClasses(), .titles = {}};
    for (const QString &pattern : builtInTitlePatterns())
        rules.titles.append(titlePattern(pattern));
    return rules;
}

bool PrivacyRules::excludes(const WindowIdentity &window) const
{
    const auto isThis = [&window](const QString &desktopId) { return isApplication(window, desktopId); };
    const auto isOfClass = [&window](const QString &name) { return isPartOf(window.windowClass, name); };
    if (std::ranges::any_of(desktopIds, isThis) || std::ranges::any_of(windowClasses, isOfClass))
        return true;
    const QString title = searchedPart(window.title);
    if (std::ranges::any_of(titles, [&title](const auto &pattern) { return isFound(pattern, title); }))
        return true;
    if (!window.pageAddress || sites.isEmpty())
        return false;
    const QUrl page = asAddress(*window.pageAddress);
    return std::ranges::any_of(sites, [&page](const QString &site) { return isOnSite(page, site); });
}

PrivacyRules PrivacyRules::joinedWith(const PrivacyRules &other) const
{
    return {.desktopIds = joined(desktopIds, other.desktopIds),
            .windowClasses = joined(windowClasses, other.windowClasses),
            .titles = joined(titles, other.titles),
            .sites = joined(sites, other.sites)};
}

QRegularExpression titlePattern(const QString &pattern)
{
    // Some milliseconds. A pattern that sets a limit of its own can only lower it.
    return QRegularExpression(QStringLiteral("(*LIMIT_MATCH=20000)") + pattern);
}

} // namespace ostrel
