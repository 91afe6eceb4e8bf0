#include "context/PrivacyRules.h"

#include "context/BuiltInPrivacyRules.h"

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
    return std::ranges::any_of(titles, [&title](const auto &pattern) { return isFound(pattern, title); });
}

PrivacyRules PrivacyRules::joinedWith(const PrivacyRules &other) const
{
    return {.desktopIds = joined(desktopIds, other.desktopIds),
            .windowClasses = joined(windowClasses, other.windowClasses),
            .titles = joined(titles, other.titles)};
}

QRegularExpression titlePattern(const QString &pattern)
{
    // Some milliseconds. A pattern that sets a limit of its own can only lower it.
    return QRegularExpression(QStringLiteral("(*LIMIT_MATCH=20000)") + pattern);
}

} // namespace ostrel
