#include "platform/kwin/KWinPrivacy.h"

#include <QHash>
#include <QSet>

namespace ostrel {

namespace {

/// What a rule can go by, to ask once for a window that has been at many places.
QStringList identityOf(const KWinWindow &window)
{
    return {window.windowClass, window.desktopFile, window.title};
}

/// A program may say that each of two windows stays above the other.
constexpr int longestAncestry = 16;

bool staysAbove(const KWinWindow &window, const QSet<QString> &privateIds, const QHash<QString, QString> &parents)
{
    QString above = window.parent;
    for (int i = 0; i < longestAncestry && !above.isEmpty(); ++i) {
        if (privateIds.contains(above))
            return true;
        above = parents.value(above);
    }
    return false;
}

} // namespace

bool KWinPrivacy::excludesByItself(const KWinWindow &window) const
{
    WindowIdentity identity{.bundleIdentifier = std::nullopt, .windowClass = window.windowClass, .title = window.title};
    if (!window.desktopFile.isEmpty())
        identity.bundleIdentifier = window.desktopFile;
    if (excludes(identity))
        return true;
    // What a program says of its menu entry needn't be so.
    const QString name = window.windowClass.section(QLatin1Char(' '), -1);
    const auto known = name.isEmpty() ? std::nullopt : bundleIdentifierOf(name);
    if (!known || known == identity.bundleIdentifier)
        return false;
    identity.bundleIdentifier = known;
    return excludes(identity);
}

QList<QRect> KWinPrivacy::placesIn(const QList<KWinWindow> &windows, const QList<qint32> &processes) const
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
    QHash<QString, QString> parents;
    for (const KWinWindow &window : windows) {
        parents.insert(window.id, window.parent);
        if (!isPrivateByItself(window))
            continue;
        privateIds.insert(window.id);
        if (window.pid > 0)
            privateProcesses.insert(window.pid);
    }
    QList<QRect> places;
    for (const KWinWindow &window : windows) {
        const bool isPrivate = isPrivateByItself(window) || staysAbove(window, privateIds, parents) ||
                               (window.isPopup && privateProcesses.contains(window.pid));
        if (isPrivate && !window.frame.isEmpty() && !places.contains(window.frame))
            places.push_back(window.frame);
    }
    return places;
}

} // namespace ostrel
