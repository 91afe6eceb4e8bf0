#include "platform/kwin/KWinPrivacy.h"

#include "platform/kwin/KWinTitles.h"

#include <QHash>
#include <QSet>

#include <algorithm>

namespace ostrel {

namespace {

/// What a rule can go by, to ask once for a window that has been at many places.
QStringList identityOf(const KWinWindow &window)
{
    return {window.windowClass, window.desktopFile, window.title,
            window.isUnresponsive ? QStringLiteral("hangs") : QString()};
}

/// Those that stay above a private window, now or a moment ago, and those above them.
QSet<QString> idsAbove(const QSet<QString> &privateIds, const QList<KWinWindow> &windows)
{
    QMultiHash<QString, QString> children;
    for (const KWinWindow &window : windows) {
        if (!window.parent.isEmpty())
            children.insert(window.parent, window.id);
    }
    QSet<QString> above;
    QStringList open(privateIds.cbegin(), privateIds.cend());
    while (!open.isEmpty()) {
        for (const QString &id : children.values(open.takeLast())) {
            if (above.contains(id))
                continue;
            above.insert(id);
            open.append(id);
        }
    }
    return above;
}

} // namespace

bool KWinPrivacy::excludesByItself(const KWinWindow &window) const
{
    std::optional<QString> told;
    if (!window.desktopFile.isEmpty())
        told = window.desktopFile;
    // What a program says of its menu entry needn't be so.
    const QString name = window.windowClass.section(QLatin1Char(' '), -1);
    const auto known = name.isEmpty() ? std::nullopt : bundleIdentifierOf(name);
    return std::ranges::any_of(possibleTitles(window.title, window.isUnresponsive), [&](const QString &title) {
        WindowIdentity identity{.bundleIdentifier = told, .windowClass = window.windowClass, .title = title};
        if (excludes(identity))
            return true;
        identity.bundleIdentifier = known;
        return known && known != told && excludes(identity);
    });
}

KWinPrivacy::Found KWinPrivacy::placesIn(const QList<KWinWindow> &windows, const QList<qint32> &processes) const
{
    QHash<QStringList, bool> verdicts;
    const auto isPrivateByItself = [&](const KWinWindow &window) {
        if (processes.contains(window.pid))
            return true;
        const QStringList identity = identityOf(window);
        const auto known = verdicts.constFind(identity);
        return known == verdicts.constEnd() ? *verdicts.insert(identity, excludesByItself(window)) : *known;
    };
    QSet<QString> privateIds;
    QSet<qint32> privateProcesses;
    for (const KWinWindow &window : windows) {
        if (!isPrivateByItself(window))
            continue;
        privateIds.insert(window.id);
        if (window.pid > 0)
            privateProcesses.insert(window.pid);
    }
    const QSet<QString> above = idsAbove(privateIds, windows);
    Found found;
    for (const KWinWindow &window : windows) {
        const bool isPrivate = isPrivateByItself(window) || above.contains(window.id) ||
                               (window.isPopup && privateProcesses.contains(window.pid));
        if (!isPrivate || window.frame.isEmpty())
            continue;
        if (!found.places.contains(window.frame))
            found.places.push_back(window.frame);
        found.mayBeAnywhere = found.mayBeAnywhere || window.isFlying;
    }
    return found;
}

} // namespace ostrel
