#include "app/tray/MenuBarIcon.h"

#include <QLineF>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <array>

namespace ostrel::MenuBarIcon {

namespace {

// The drawing stands in a grid of 64 by 64 with its origin at the top left.
constexpr qreal grid = 64;
constexpr std::array circleCenters{QPointF(22, 14), QPointF(42, 14), QPointF(22, 32), QPointF(42, 32), QPointF(22, 50)};
constexpr std::array connectors{QLineF(27, 14, 37, 14), QLineF(27, 32, 37, 32), QLineF(22, 19, 22, 27),
                                QLineF(42, 19, 42, 27), QLineF(22, 37, 22, 45)};
constexpr qreal circleRadius = 8;
constexpr qreal circleStroke = 6;
constexpr qreal connectorStroke = 3;

// In points of the icon.
constexpr qreal dotSize = 6;
constexpr qreal ringWidth = 1.5;
constexpr qreal outlineWidth = 0.6; // more would fill the circles
constexpr QColor red(0xE5, 0x3B, 0x30);

/// @param wider points by which the strokes exceed the drawing's own on each side
void drawMarks(QPainter &painter, const QColor &color, qreal wider)
{
    const qreal s = size / grid;
    QPainterPath circles;
    for (const QPointF &center : circleCenters)
        circles.addEllipse(center * s, circleRadius * s, circleRadius * s);
    painter.strokePath(circles, QPen(color, circleStroke * s + 2 * wider));

    QPainterPath lines;
    for (const QLineF &line : connectors) {
        lines.moveTo(line.p1() * s);
        lines.lineTo(line.p2() * s);
    }
    painter.strokePath(lines, QPen(color, connectorStroke * s + 2 * wider, Qt::SolidLine, Qt::RoundCap));
}

void drawDot(QPainter &painter)
{
    const QRectF dot(size - dotSize, 0, dotSize, dotSize);
    painter.setPen(Qt::NoPen);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationOut);
    painter.setBrush(Qt::black);
    painter.drawEllipse(dot.adjusted(-ringWidth, -ringWidth, ringWidth, ringWidth));
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setBrush(red);
    painter.drawEllipse(dot);
}

} // namespace

QImage image(bool recording, const TrayInk &ink, qreal scale)
{
    QImage picture(qRound(size * scale), qRound(size * scale), QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(qreal(picture.width()) / size, qreal(picture.height()) / size);
    if (ink.outline)
        drawMarks(painter, *ink.outline, outlineWidth);
    drawMarks(painter, ink.marks, 0);
    if (recording)
        drawDot(painter);
    return picture;
}

QIcon icon(bool recording, const TrayInk &ink)
{
    QIcon icon;
    for (const qreal scale : {1.0, 1.5, 2.0, 3.0})
        icon.addPixmap(QPixmap::fromImage(image(recording, ink, scale)));
    return icon;
}

} // namespace ostrel::MenuBarIcon
