#include "app/tray/DesktopTrayItem.h"

#include "app/tray/MenuBarIcon.h"

#include <QCursor>
#include <QEvent>
#include <QGuiApplication>
#include <QPalette>
#include <QPixmap>
#include <QScreen>

namespace ostrel {

namespace {

constexpr QColor onLight(0x2A, 0x27, 0x23);
constexpr QColor onDark(0xEF, 0xE9, 0xDD);
constexpr int settlingMs = 1000;

bool isDark(const QColor &color)
{
    return qGray(color.rgb()) < 128;
}

/// What the panel shows where our drawing leaves its corner free.
std::optional<QColor> backgroundAt(const QRect &item)
{
    QScreen *const screen = item.isEmpty() ? nullptr : QGuiApplication::screenAt(item.center());
    if (screen == nullptr)
        return std::nullopt;
    const QPoint corner = item.topLeft() - screen->geometry().topLeft();
    const QImage pixel = screen->grabWindow(0, corner.x(), corner.y(), 1, 1).toImage();
    return pixel.isNull() ? std::nullopt : std::optional(pixel.pixelColor(0, 0));
}

} // namespace

DesktopTrayItem::DesktopTrayItem()
{
    m_menu.addAction(tr("Quit Tamsk Ostrel"), this, &TrayItem::quitChosen);
    connect(&m_menu, &QMenu::aboutToShow, this, &TrayItem::menuAboutToShow);
    connect(&m_icon, &QSystemTrayIcon::activated, this, &DesktopTrayItem::onActivated);
    m_icon.setContextMenu(&m_menu);
    m_settled.setSingleShot(true);
    connect(&m_settled, &QTimer::timeout, this, &DesktopTrayItem::draw);
    qGuiApp->installEventFilter(this);
}

void DesktopTrayItem::show()
{
    draw();
    m_icon.show();
    m_settled.start(settlingMs);
}

void DesktopTrayItem::setRecording(bool recording)
{
    m_isRecording = recording;
    draw();
}

QRect DesktopTrayItem::geometry() const
{
    const QRect told = m_icon.geometry();
    return told.isEmpty() ? QRect(QCursor::pos(), QSize(1, 1)) : told;
}

void DesktopTrayItem::popUpMenu()
{
    m_menu.popup(geometry().bottomLeft());
}

bool DesktopTrayItem::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::ApplicationPaletteChange)
        draw();
    return TrayItem::eventFilter(watched, event);
}

void DesktopTrayItem::onActivated(QSystemTrayIcon::ActivationReason reason)
{
    if (reason == QSystemTrayIcon::Trigger)
        // A StatusNotifierItem's click carries no modifiers of its own.
        Q_EMIT clicked(QGuiApplication::queryKeyboardModifiers().testFlag(Qt::ControlModifier));
}

QColor DesktopTrayItem::labelColor() const
{
    const auto background = backgroundAt(m_icon.geometry());
    const bool dark = background ? isDark(*background) : isDark(QGuiApplication::palette().color(QPalette::Window));
    return dark ? onDark : onLight;
}

void DesktopTrayItem::draw()
{
    m_icon.setIcon(MenuBarIcon::icon(m_isRecording, labelColor()));
}

} // namespace ostrel
