#pragma once

#include <QObject>

namespace ostrel {

class DesktopAppearance;

/// Keeps the appearance dark while the desktop's palette is. Main thread; lives while a QGuiApplication does.
class PaletteScheme : public QObject
{
    Q_OBJECT

public:
    /// The appearance outlives this object.
    explicit PaletteScheme(DesktopAppearance &appearance);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void adopt();

    DesktopAppearance &m_appearance;
};

} // namespace ostrel
