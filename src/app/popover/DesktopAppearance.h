#pragma once

#include "app/popover/AppearanceSource.h"

#include <QObject>
#include <QtQmlIntegration>
#include <optional>

namespace ostrel {

/// How the desktop wants programs to look. Whoever learns it sets it; the screens follow at once. Main thread.
class DesktopAppearance : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of PopoverModel")

    Q_PROPERTY(bool dark READ isDark WRITE setDark NOTIFY darkChanged)
    Q_PROPERTY(double textScale READ textScale WRITE setTextScale NOTIFY textScaleChanged)
    Q_PROPERTY(bool reducedMotion READ reducedMotion WRITE setReducedMotion NOTIFY reducedMotionChanged)

public:
    static constexpr double smallestTextScale = 0.8;
    static constexpr double largestTextScale = 2;

    bool isDark() const { return m_wantsDark.value_or(m_dark); }
    /// Holds while nobody wishes for the one or the other.
    void setDark(bool dark);
    /// 1 is the size that was designed for.
    double textScale() const { return m_textScale; }
    /// What lies outside the sizes above, the panel has no room for, or nobody can read.
    void setTextScale(double scale);
    bool reducedMotion() const { return m_reducedMotion; }
    void setReducedMotion(bool reduced);

    /// What is not wished for is as designed, and dark as `setDark` says.
    void adopt(const AppearanceWishes &wishes);

Q_SIGNALS:
    void darkChanged();
    void textScaleChanged();
    void reducedMotionChanged();

private:
    bool m_dark = false;
    std::optional<bool> m_wantsDark;
    double m_textScale = 1;
    bool m_reducedMotion = false;
};

} // namespace ostrel
