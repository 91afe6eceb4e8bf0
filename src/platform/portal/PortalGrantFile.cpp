#include "platform/portal/PortalGrantFile.h"

#include "base/Files.h"
#include "base/Log.h"
#include "base/Paths.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <algorithm>
#include <optional>
#include <utility>

namespace ostrel {

namespace {

const QString grantsKey = QStringLiteral("grants");
const QString monitorsKey = QStringLiteral("monitors");
const QString tokenKey = QStringLiteral("restoreToken");

std::optional<PortalGrantFile::Grant> grantIn(const QJsonObject &object)
{
    const QJsonValue token = object.value(tokenKey);
    if (!token.isString())
        return std::nullopt;
    PortalGrantFile::Grant grant{.monitors = {}, .restoreToken = token.toString()};
    for (const auto &monitor : object.value(monitorsKey).toArray())
        grant.monitors.append(monitor.toString());
    return grant;
}

QJsonObject asJson(const PortalGrantFile::Grant &grant)
{
    return {{monitorsKey, QJsonArray::fromStringList(grant.monitors)}, {tokenKey, grant.restoreToken}};
}

} // namespace

PortalGrantFile::PortalGrantFile(QString path) : m_path(std::move(path)) {}

QString PortalGrantFile::path() const
{
    return m_path.isEmpty() ? stateDirectory() + QStringLiteral("/screen-sharing.json") : m_path;
}

QList<PortalGrantFile::Grant> PortalGrantFile::read() const
{
    const auto bytes = readFile(path());
    if (!bytes)
        return {};
    const QJsonObject object = QJsonDocument::fromJson(*bytes).object();
    QList<Grant> grants;
    for (const auto &each : object.value(grantsKey).toArray()) {
        if (const auto grant = grantIn(each.toObject()))
            grants.append(*grant);
    }
    // A single grant stood by itself before monitors were told apart.
    if (const auto grant = grantIn(object))
        grants.append(*grant);
    return grants;
}

PortalGrantFile::Grant PortalGrantFile::grantFor(const QStringList &monitors) const
{
    const QList<Grant> grants = read();
    const auto same = std::ranges::find(grants, monitors, &Grant::monitors);
    if (same != grants.end())
        return *same;
    const bool areTold = !monitors.isEmpty() &&
                         std::ranges::any_of(grants, [](const Grant &grant) { return !grant.monitors.isEmpty(); });
    return areTold || grants.isEmpty() ? Grant() : grants.first();
}

PortalGrantFile::Grant PortalGrantFile::grantWithin(const QStringList &monitors) const
{
    const QList<Grant> grants = read();
    const auto isThere = [&](const QString &monitor) { return monitors.contains(monitor); };
    const auto within =
        std::ranges::find_if(grants, [&](const Grant &grant) { return std::ranges::all_of(grant.monitors, isThere); });
    return within != grants.end() ? *within : Grant{.monitors = {}, .restoreToken = grants.value(0).restoreToken};
}

bool PortalGrantFile::hasTokenForJust(const QStringList &monitors) const
{
    return std::ranges::any_of(
        read(), [&](const Grant &grant) { return grant.monitors == monitors && !grant.restoreToken.isEmpty(); });
}

void PortalGrantFile::keep(const Grant &grant, const QString &usedToken) const
{
    QList<Grant> grants = read();
    grants.removeIf([&](const Grant &each) {
        const bool isUsedUp = !usedToken.isEmpty() && each.restoreToken == usedToken;
        return isUsedUp || each.monitors == grant.monitors;
    });
    grants.prepend(grant);
    QJsonArray array;
    for (const Grant &each : std::as_const(grants).first(std::min(grants.size(), mostGrants)))
        array.append(asJson(each));
    const QJsonObject object{{grantsKey, array}};
    const auto written = writeFileAtomically(path(), QJsonDocument(object).toJson());
    if (!written)
        qCWarning(logPlatform, "the grant to record the screen can't be kept: %s",
                  qUtf8Printable(written.error().localizedDescription));
}

void PortalGrantFile::drop() const
{
    QFile::remove(path());
}

} // namespace ostrel
