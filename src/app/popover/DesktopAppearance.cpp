#include "app/popover/DesktopAppearance.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace ostrel {

void DesktopAppearance::setDark(bool dark)
{
    if (std::exchange(m_dark, dark) != dark)
        Q_EMIT darkChanged();
}

void DesktopAppearance::setTextScale(double scale)
{
    if (!std::isfinite(scale))
        return;
    scale = std::clamp(scale, smallestTextScale, largestTextScale);
    if (std::exchange(m_textScale, scale) != scale)
        Q_EMIT textScaleChanged();
}

void DesktopAppearance::setReducedMotion(bool reduced)
{
    if (std::exchange(m_reducedMotion, reduced) != reduced)
        Q_EMIT reducedMotionChanged();
}

} // namespace ostrel
