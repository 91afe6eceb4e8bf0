#include "app/popover/DesktopAppearance.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace ostrel {

void DesktopAppearance::setDark(bool dark)
{
    const bool wasDark = isDark();
    m_dark = dark;
    if (isDark() != wasDark)
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

void DesktopAppearance::adopt(const AppearanceWishes &wishes)
{
    const bool wasDark = isDark();
    m_wantsDark = wishes.dark;
    if (isDark() != wasDark)
        Q_EMIT darkChanged();
    setTextScale(wishes.textScale.value_or(1));
    setReducedMotion(wishes.reducedMotion.value_or(false));
}

} // namespace ostrel
