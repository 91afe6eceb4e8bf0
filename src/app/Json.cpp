#include "app/Json.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace ostrel {

QString jsonDocument(const QJsonValue &arrayOrObject)
{
    const QJsonDocument document =
        arrayOrObject.isArray() ? QJsonDocument(arrayOrObject.toArray()) : QJsonDocument(arrayOrObject.toObject());
    return QString::fromUtf8(document.toJson(QJsonDocument::Indented));
}

QJsonValue orNull(const std::optional<QString> &text)
{
    return text ? QJsonValue(*text) : QJsonValue(QJsonValue::Null);
}

} // namespace ostrel
