#include "platform/kwin/KWinNews.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRectF>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace ostrel {

namespace {

constexpr qsizetype longestNews = qsizetype(16) * 1024 * 1024;
constexpr qsizetype longestText = 4'096; ///< the script cuts them shorter
constexpr qsizetype mostMonitors = 64;
constexpr double farthest = 1'000'000; ///< pixels; sums of two stay far from where numbers end

std::optional<QString> textIn(const QJsonObject &object, const char *name)
{
    const QJsonValue value = object.value(QLatin1String(name));
    if (!value.isString() || value.toString().size() > longestText)
        return std::nullopt;
    return value.toString();
}

std::optional<bool> flagIn(const QJsonObject &object, const char *name)
{
    const QJsonValue value = object.value(QLatin1String(name));
    return value.isBool() ? std::optional(value.toBool()) : std::nullopt;
}

std::optional<QRectF> exactPlaceIn(const QJsonValue &value)
{
    const QJsonArray numbers = value.toArray();
    std::array<double, 4> sides{};
    if (numbers.size() != qsizetype(sides.size()))
        return std::nullopt;
    for (qsizetype i = 0; i < numbers.size(); ++i) {
        const double side = numbers.at(i).toDouble(std::numeric_limits<double>::quiet_NaN());
        if (!(std::abs(side) <= farthest))
            return std::nullopt;
        sides.at(std::size_t(i)) = side;
    }
    const auto [x, y, width, height] = sides;
    if (width < 0 || height < 0)
        return std::nullopt;
    return QRectF(x, y, width, height);
}

/// There are fractions of logical pixels where a monitor's scale has some: all that are touched count.
std::optional<QRect> placeIn(const QJsonValue &value)
{
    const auto place = exactPlaceIn(value);
    return place ? std::optional(place->toAlignedRect()) : std::nullopt;
}

/// What is rounded of a monitor moves all windows on it, by less than a logical pixel. That is more than one of the
/// picture's.
void allowForRounding(KWinNews &news)
{
    for (KWinWindow &window : news.windows) {
        if (!window.frame.isEmpty())
            window.frame.adjust(-1, -1, 1, 1);
    }
}

/// KWin says -1, or nothing at all, where it doesn't know the process.
qint32 processIn(const QJsonObject &object)
{
    return std::max(object.value(QLatin1String("pid")).toInt(0), 0);
}

/// Programs may tell the whole path of their menu entry.
QString asDesktopFileId(const QString &name)
{
    const QString file = name.section(QLatin1Char('/'), -1);
    const QLatin1String ending(".desktop");
    return file.endsWith(ending) ? file.chopped(ending.size()) : file;
}

std::optional<KWinWindow> windowIn(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    const auto id = textIn(object, "id");
    const auto parent = textIn(object, "parent");
    const auto instance = textIn(object, "instance");
    const auto windowClass = textIn(object, "class");
    const auto entry = textIn(object, "entry");
    const auto title = textIn(object, "title");
    const auto isUnresponsive = flagIn(object, "unresponsive");
    const auto isPopup = flagIn(object, "popup");
    const auto isSeen = flagIn(object, "seen");
    const auto frame = placeIn(object.value(QLatin1String("place")));
    if (!id || id->isEmpty() || !parent || !instance || !windowClass || !entry || !title || !isUnresponsive ||
        !isPopup || !isSeen || !frame)
        return std::nullopt;
    return KWinWindow{.id = *id,
                      .parent = *parent,
                      .pid = processIn(object),
                      .windowClass = QStringLiteral("%1 %2").arg(*instance, *windowClass).trimmed(),
                      .desktopFile = asDesktopFileId(*entry),
                      .title = *title,
                      .isUnresponsive = *isUnresponsive,
                      .isPopup = *isPopup,
                      .isSeen = *isSeen,
                      .frame = *frame};
}

} // namespace

std::optional<KWinNews> kwinNewsIn(const QByteArray &json)
{
    if (json.size() > longestNews)
        return std::nullopt;
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    const QJsonValue monitors = object.value(QLatin1String("monitors"));
    const QJsonValue windows = object.value(QLatin1String("windows"));
    if (!monitors.isArray() || !windows.isArray() || monitors.toArray().size() > mostMonitors ||
        windows.toArray().size() > mostKWinWindows)
        return std::nullopt;
    KWinNews news;
    bool areRounded = false;
    for (const QJsonValue each : monitors.toArray()) {
        const auto place = exactPlaceIn(each);
        if (!place)
            return std::nullopt;
        news.monitors.push_back(place->toAlignedRect());
        areRounded = areRounded || QRectF(news.monitors.back()) != *place;
    }
    for (const QJsonValue each : windows.toArray()) {
        const auto window = windowIn(each);
        if (!window)
            return std::nullopt;
        news.windows.push_back(*window);
    }
    if (areRounded)
        allowForRounding(news);
    return news;
}

} // namespace ostrel
