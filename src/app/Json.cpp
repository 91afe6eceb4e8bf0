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

} // namespace ostrel
