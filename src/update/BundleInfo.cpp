#include "update/BundleInfo.h"

#include "base/Files.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace ostrel {

namespace {

std::optional<QString> textOf(const QJsonObject &info, const char *key)
{
    const QString text = info.value(QLatin1String(key)).toString();
    return text.isEmpty() ? std::nullopt : std::optional(text);
}

} // namespace

BundleInfo BundleInfo::read(const QString &prefix)
{
    const auto bytes = readFile(prefix + QLatin1String("/share/ostrel/Info.json"));
    const QJsonObject info = QJsonDocument::fromJson(bytes.value_or(QByteArray())).object();
    return {.prefix = prefix,
            .feedUrl = textOf(info, "SUFeedURL"),
            .publicKey = textOf(info, "SUPublicEDKey"),
            .shortVersion = textOf(info, "CFBundleShortVersionString")};
}

BundleInfo BundleInfo::ofThisProgram()
{
    return read(QFileInfo(QCoreApplication::applicationDirPath()).path());
}

} // namespace ostrel
