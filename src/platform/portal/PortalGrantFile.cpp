#include "platform/portal/PortalGrantFile.h"

#include "base/Files.h"
#include "base/Log.h"
#include "base/Paths.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <utility>

namespace ostrel {

namespace {

const QString tokenKey = QStringLiteral("restoreToken");

} // namespace

PortalGrantFile::PortalGrantFile(QString path) : m_path(std::move(path)) {}

QString PortalGrantFile::path() const
{
    return m_path.isEmpty() ? stateDirectory() + QStringLiteral("/screen-sharing.json") : m_path;
}

std::optional<PortalGrantFile::Grant> PortalGrantFile::read() const
{
    const auto bytes = readFile(path());
    if (!bytes)
        return std::nullopt;
    const QJsonValue token = QJsonDocument::fromJson(*bytes).object().value(tokenKey);
    if (!token.isString())
        return std::nullopt;
    return Grant{.restoreToken = token.toString()};
}

void PortalGrantFile::keep(const Grant &grant) const
{
    const QJsonObject object{{tokenKey, grant.restoreToken}};
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
