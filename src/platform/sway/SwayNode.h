#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QRect>
#include <QString>

#include <optional>

namespace ostrel::SwayNode {

/// Only whole numbers that a screen can have. Logical pixels on sway's desktop; it may be empty.
std::optional<QRect> rectangle(const QJsonValue &value);

/// 0 where it is not told.
qint32 pid(const QJsonObject &node);

} // namespace ostrel::SwayNode
