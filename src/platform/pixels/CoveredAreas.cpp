#include "platform/pixels/CoveredAreas.h"

#include <cmath>
#include <cstring>

namespace ostrel {

namespace {

struct Span {
    int begin;
    int end;
};

/// Rounded outwards. Where a logical pixel isn't a whole number of real ones, the monitor's logical size was rounded
/// itself, which moves edges by up to a pixel.
Span scaled(Span logical, int logicalSize, int pixelSize)
{
    const double scale = double(pixelSize) / logicalSize;
    const int doubt = pixelSize % logicalSize == 0 ? 0 : 1;
    return {.begin = int(std::floor(logical.begin * scale)) - doubt,
            .end = int(std::ceil(logical.end * scale)) + doubt};
}

} // namespace

QList<QRect> pixelsTouched(const QList<QRect> &areas, const QRect &monitor, QSize picture)
{
    if (monitor.isEmpty())
        return {};
    QList<QRect> touched;
    for (const QRect &area : areas) {
        // What lies far away can't be computed with; what begins right beside the edge may touch it by rounding.
        const QRect near = area & monitor.adjusted(-1, -1, 1, 1);
        if (near.isEmpty())
            continue;
        const QRect inside = near.translated(-monitor.topLeft());
        const Span x = scaled({.begin = inside.left(), .end = inside.right() + 1}, monitor.width(), picture.width());
        const Span y = scaled({.begin = inside.top(), .end = inside.bottom() + 1}, monitor.height(), picture.height());
        const QRect pixels = QRect(x.begin, y.begin, x.end - x.begin, y.end - y.begin) & QRect(QPoint(), picture);
        if (!pixels.isEmpty())
            touched.append(pixels);
    }
    return touched;
}

void coverPixels(const QList<QRect> &covered, std::uint8_t *pixels, std::ptrdiff_t stride)
{
    constexpr std::ptrdiff_t bytesPerPixel = 4;
    for (const QRect &area : covered) {
        for (int y = area.top(); y <= area.bottom(); ++y)
            std::memset(pixels + y * stride + area.left() * bytesPerPixel, 0,
                        std::size_t(area.width() * bytesPerPixel));
    }
}

} // namespace ostrel
