#include "platform/sway/SwayNode.h"

#include <limits>

namespace ostrel::SwayNode {

namespace {

using namespace Qt::Literals::StringLiterals;

std::optional<int> coordinate(const QJsonValue &value)
{
    constexpr double farthest = 1 << 20;
    const double number = value.toDouble(std::numeric_limits<double>::quiet_NaN());
    if (!(number >= -farthest && number <= farthest) || double(int(number)) != number)
        return std::nullopt;
    return int(number);
}

} // namespace

std::optional<QRect> rectangle(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    const auto x = coordinate(object["x"_L1]);
    const auto y = coordinate(object["y"_L1]);
    const auto width = coordinate(object["width"_L1]);
    const auto height = coordinate(object["height"_L1]);
    if (!x || !y || !width || !height)
        return std::nullopt;
    return QRect(*x, *y, *width, *height);
}

qint32 pid(const QJsonObject &node)
{
    const qint64 pid = node["pid"_L1].toInteger(0);
    return pid > 0 && pid <= std::numeric_limits<qint32>::max() ? qint32(pid) : 0;
}

} // namespace ostrel::SwayNode
