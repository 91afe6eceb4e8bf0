#include "app/popover/ShadowProvider.h"

#include <QPointF>
#include <QRectF>

#include <algorithm>
#include <cmath>

namespace ostrel {

namespace {

constexpr int largest = 256;
constexpr qreal strength = 0.28; ///< right at the sheet's edge
/// The light comes from above: so far the shadow falls below the sheet, of its width.
constexpr qreal drop = 0.25;

/// How far a point is outside of a rectangle with round corners; 0 within.
qreal distanceFrom(const QRectF &sheet, qreal radius, QPointF point)
{
    const QRectF core = sheet.marginsRemoved({radius, radius, radius, radius});
    const QPointF nearest(std::clamp(point.x(), core.left(), core.right()),
                          std::clamp(point.y(), core.top(), core.bottom()));
    return std::max(0.0, std::hypot(point.x() - nearest.x(), point.y() - nearest.y()) - radius);
}

} // namespace

ShadowProvider::ShadowProvider() : QQuickImageProvider(QQmlImageProviderBase::Image) {}

QImage ShadowProvider::requestImage(const QString &id, QSize *size, const QSize & /*requestedSize*/)
{
    const int width = id.section(u'/', 0, 0).toInt();
    const int radius = id.section(u'/', 1).toInt();
    if (width <= 0 || width > largest || radius < 0 || radius > largest)
        return {};
    const int extent = 2 * (width + radius) + 1;
    const qreal fallen = width * drop;
    const qreal reach = width - fallen;
    const QRectF sheet(width, width + fallen, 2 * radius + 1, 2 * radius + 1);
    QImage image(extent, extent, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < extent; ++y) {
        for (int x = 0; x < extent; ++x) {
            const qreal far = std::min(1.0, distanceFrom(sheet, radius, {x + 0.5, y + 0.5}) / reach);
            image.setPixel(x, y, qRgba(0, 0, 0, qRound(255 * strength * (1 - far) * (1 - far))));
        }
    }
    if (size)
        *size = image.size();
    return image;
}

} // namespace ostrel
