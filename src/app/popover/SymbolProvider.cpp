#include "app/popover/SymbolProvider.h"

#include <QColor>
#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

namespace ostrel {

namespace {

constexpr int defaultSize = 16;
constexpr int largestSize = 1024;

} // namespace

SymbolProvider::SymbolProvider() : QQuickImageProvider(QQmlImageProviderBase::Image) {}

QImage SymbolProvider::requestImage(const QString &id, QSize *size, const QSize &requestedSize)
{
    const QColor color(id.section(u'/', 1));
    QFile drawing(QStringLiteral(":/ostrel/symbols/%1.svg").arg(id.section(u'/', 0, 0)));
    if (!color.isValid() || !drawing.open(QIODevice::ReadOnly))
        return {};
    QSvgRenderer renderer(drawing.readAll().replace("currentColor", color.name().toLatin1()));
    const QSize wanted = requestedSize.isEmpty() ? QSize(defaultSize, defaultSize)
                                                 : requestedSize.boundedTo(QSize(largestSize, largestSize));
    QImage image(wanted, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    renderer.render(&painter);
    if (size)
        *size = wanted;
    return image;
}

} // namespace ostrel
