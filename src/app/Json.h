#pragma once

#include <QJsonValue>
#include <QString>
#include <optional>

namespace ostrel {

/// An indented document with its last line break.
QString jsonDocument(const QJsonValue &arrayOrObject);

/// The text, or null where it is absent.
QJsonValue orNull(const std::optional<QString> &text);

} // namespace ostrel
