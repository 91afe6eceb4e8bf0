#pragma once

#include "base/Files.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <stdexcept>

namespace ostrel {

inline QDir fixtureFolder(const char *name)
{
    return QDir(QStringLiteral(OSTREL_FIXTURES "/") + QLatin1String(name));
}

/// One fixture file as JSON. Its own form is plain; only the texts inside are delicate.
inline QJsonObject readFixture(const QString &path)
{
    const auto bytes = readFile(path);
    const auto document = QJsonDocument::fromJson(bytes.value_or(QByteArray()));
    if (!document.isObject())
        throw std::runtime_error("not a fixture: " + path.toStdString());
    return document.object();
}

} // namespace ostrel
