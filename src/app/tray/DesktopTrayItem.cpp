#include "app/tray/DesktopTrayItem.h"

#include "app/tray/MenuBarIcon.h"

#include <QCursor>
#include <QEvent>
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

namespace ostrel {

namespace {

constexpr int settlingMs = 1000;

/// Of the icon in a tray that doesn't tell where it is, in logical pixels.
constexpr int usualSize = 24;

/// Where the icon is that has just been clicked. More than the one point: the click that closes the panel again seldom
/// goes to the same one.
QRect aroundPointer()
{
    QRect icon(0, 0, usualSize, usualSize);
    icon.moveCenter(QCursor::pos());
    return icon;
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

DesktopTrayItem::DesktopTrayItem(const PanelDesktop &desktop) : m_desktop(desktop)
{
    m_menu.addAction(tr("Quit Tamsk Ostrel"), this, &TrayItem::quitChosen);
    connect(&m_menu, &QMenu::aboutToShow, this, &TrayItem::menuAboutToShow);
    connect(&m_icon, &QSystemTrayIcon::activated, this, &DesktopTrayItem::onActivated);
    m_icon.setContextMenu(&m_menu);
    m_settled.setSingleShot(true);
    connect(&m_settled, &QTimer::timeout, this, &DesktopTrayItem::draw);
    connect(&m_desktop, &PanelDesktop::trayForegroundChanged, this, &DesktopTrayItem::draw);
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
    return told.isEmpty() ? aroundPointer() : told;
}

void DesktopTrayItem::popUpMenu()
{
    m_menu.popup(geometry().bottomLeft());
}

void DesktopTrayItem::setWantsDark(std::optional<bool> dark)
{
    m_wantsDark = dark;
    draw();
}

bool DesktopTrayItem::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::ApplicationPaletteChange)
        draw();
    return TrayItem::eventFilter(watched, event);
}

void DesktopTrayItem::onActivated(QSystemTrayIcon::ActivationReason reason)
{
    // The second of two quick clicks is a click like any other.
    if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
        // A StatusNotifierItem's click carries no modifiers of its own.
        Q_EMIT clicked(QGuiApplication::queryKeyboardModifiers().testFlag(Qt::ControlModifier));
    else if (reason == QSystemTrayIcon::Context && m_icon.geometry().isEmpty())
        // A tray that embeds us opens the menu besides; another asks us for it where it shows no menus of others'.
        popUpMenu();
}

TraySurroundings DesktopTrayItem::surroundings() const
{
    // Only a tray that has docked us tells our place, and it is that tray's colours which the desktop knows.
    const QRect place = m_icon.geometry();
    return {.foreground = place.isEmpty() ? std::nullopt : m_desktop.trayForeground(),
            .background = backgroundAt(place),
            .wantsDark = m_wantsDark};
}

void DesktopTrayItem::draw()
{
    m_icon.setIcon(MenuBarIcon::icon(m_isRecording, trayInk(surroundings())));
}

} // namespace ostrel
