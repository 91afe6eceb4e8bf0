#include "context/ActiveDisplayResolver.h"

#include <algorithm>

namespace ostrel {

namespace {

/// The area that two rectangles have in common; 0 where there is none.
double overlapArea(const QRectF &one, const QRectF &other)
{
    const QRectF a = one.normalized();
    const QRectF b = other.normalized();
    const double width = std::min(a.right(), b.right()) - std::max(a.left(), b.left());
    const double height = std::min(a.bottom(), b.bottom()) - std::max(a.top(), b.top());
    return width > 0 && height > 0 ? width * height : 0;
}

/// QRectF::contains counts all four edges in; of two displays side by side both would then hold the edge.
bool holds(const QRectF &bounds, QPointF point)
{
    const QRectF area = bounds.normalized();
    return point.x() >= area.left() && point.x() < area.right() && point.y() >= area.top() && point.y() < area.bottom();
}

const ActiveDisplayCandidate *displayWithLargestOverlap(const QRectF &frame,
                                                        const QList<ActiveDisplayCandidate> &displays)
{
    if (!(frame.width() > 0 && frame.height() > 0))
        return nullptr;
    const ActiveDisplayCandidate *best = nullptr;
    double bestArea = 0;
    for (const ActiveDisplayCandidate &display : displays) {
        const double area = overlapArea(frame, display.bounds);
        if (area > bestArea) {
            best = &display;
            bestArea = area;
        }
    }
    return best;
}

ActiveDisplaySelection selection(const ActiveDisplayCandidate &display, const QString &reason)
{
    return {.displayId = display.displayId, .displayLabel = display.displayLabel, .reason = reason};
}

} // namespace

std::optional<ActiveDisplaySelection> ActiveDisplayResolver::resolve(const std::optional<QRectF> &windowFrame,
                                                                     const std::optional<QPointF> &mouseLocation,
                                                                     const QList<ActiveDisplayCandidate> &displays)
{
    if (windowFrame) {
        if (const auto *display = displayWithLargestOverlap(*windowFrame, displays))
            return selection(*display, QStringLiteral("focusedWindow"));
    }
    if (!mouseLocation)
        return std::nullopt;
    const auto under = std::find_if(displays.begin(), displays.end(), [&mouseLocation](const auto &display) {
        return holds(display.bounds, *mouseLocation);
    });
    if (under == displays.end())
        return std::nullopt;
    return selection(*under, QStringLiteral("mouse"));
}

} // namespace ostrel
