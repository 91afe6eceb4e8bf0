#pragma once

#include <QJsonValue>
#include <QString>
#include <optional>

namespace ostrel {

/// An indented document with its last line break.
QString jsonDocument(const QJsonValue &arrayOrObject);

/// The value, or null where it is absent.
template <class T>
QJsonValue orNull(const std::optional<T> &value)
{
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

} // namespace ostrel
