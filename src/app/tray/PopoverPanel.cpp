#include "app/tray/PopoverPanel.h"

#include "app/popover/DialogSheet.h"
#include "app/popover/PopoverEngine.h"
#include "app/popover/PopoverModel.h"
#include "app/tray/PanelPlacement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainterPath>
#include <QQuickItem>
#include <QRegion>
#include <QScreen>
#include <QVariantMap>
#include <QtMath>
#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

/// Room for the shadow, in logical pixels.
constexpr int shadowWidth = 24;

/// Whether a window belongs to another one, as its dialogs do.
bool isChildOf(const QWindow *window, const QWindow *parent)
{
    for (; window != nullptr; window = window->transientParent()) {
        if (window == parent)
            return true;
    }
    return false;
}

/// What is cut out of a window without a compositor.
QRegion roundedRegion(QSize size, qreal radius)
{
    QPainterPath path;
    path.addRoundedRect(QRectF({}, size), radius, radius);
    return QRegion(path.toFillPolygon().toPolygon());
}

} // namespace

PopoverPanel::PopoverPanel(PopoverModel &popoverModel, DialogSheet &sheet, PanelDesktop &desktop,
                           std::function<bool()> isDialogUp)
    : m_desktop(desktop), m_isDialogUp(std::move(isDialogUp))
{
    m_view.setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    m_view.setTitle(QStringLiteral("Tamsk Ostrel"));
    m_view.setColor(Qt::transparent);
    m_view.setResizeMode(QQuickView::SizeRootObjectToView);
    m_view.onEscape = [this] { Q_EMIT escapePressed(); };
    m_view.onQuit = [this] { Q_EMIT quitPressed(); };
    load(popoverModel, sheet);
    shape();
    connect(m_view.rootObject(), SIGNAL(implicitHeightChanged()), this, SLOT(place()));
    connect(qGuiApp, &QGuiApplication::focusWindowChanged, this, &PopoverPanel::onFocusWindowChanged);
    connect(&m_desktop, &PanelDesktop::compositedChanged, this, &PopoverPanel::shape);
    connect(&m_view, &QWindow::visibleChanged, this, &PopoverPanel::onVisibleChanged);
}

PopoverPanel::~PopoverPanel()
{
    // The screens bind to what goes with us.
    m_view.setSource({});
}

void PopoverPanel::load(PopoverModel &popoverModel, DialogSheet &sheet)
{
    m_view.setInitialProperties({{QStringLiteral("model"), QVariant::fromValue(&popoverModel)},
                                 {QStringLiteral("sheet"), QVariant::fromValue(&sheet)}});
    preparePopoverEngine(*m_view.engine());
    m_view.setSource(panelSheetUrl());
}

void PopoverPanel::showAt(const QRect &icon)
{
    m_icon = icon;
    place();
    if (!isShown())
        m_desktop.keepOutOfLists(m_view);
    m_view.show();
    m_view.raise();
    m_view.requestActivate();
}

/// A window manager may close it as well.
void PopoverPanel::onVisibleChanged(bool isVisible)
{
    m_hasFocus = false; // of a panel that was just closed, the focus may still have to be taken away
    m_outsideClickMonitor = isVisible ? m_desktop.monitorClicks([this] { onPressed(); }) : nullptr;
}

QRect PopoverPanel::paper() const
{
    return m_view.geometry().marginsRemoved({m_shadow, m_shadow, m_shadow, m_shadow});
}

/// Takes the shape that the desktop can show.
void PopoverPanel::shape()
{
    m_shadow = m_desktop.isComposited() ? shadowWidth : 0;
    m_view.rootObject()->setProperty("shadow", m_shadow);
    place();
}

void PopoverPanel::place()
{
    QScreen *screen = QGuiApplication::screenAt(m_icon.center());
    if (screen == nullptr)
        screen = QGuiApplication::primaryScreen();
    const QQuickItem *const sheet = m_view.rootObject();
    const QRect available = screen->availableGeometry();
    const QSize shadows(2 * m_shadow, 2 * m_shadow);
    const QSize wanted(qCeil(sheet->implicitWidth()), qCeil(sheet->implicitHeight()));
    const QSize paper = panelSize(wanted - shadows, available);
    const QSize size = paper + shadows;
    const QPoint corner = panelPosition(m_icon, available, paper);
    // A compositor that arranges windows itself leaves those alone that have but one size.
    m_view.setMinimumSize(size);
    m_view.setMaximumSize(size);
    m_view.setGeometry(QRect(corner - QPoint(m_shadow, m_shadow), size));
    m_view.setMask(m_shadow > 0 ? QRegion() : roundedRegion(size, sheet->property("radius").toReal()));
    m_desktop.setShadow(m_view, m_shadow);
}

/// Only a panel that had the keyboard can lose it: while it opens, the focus may still be on its way from elsewhere.
void PopoverPanel::onFocusWindowChanged(const QWindow *focus)
{
    const bool hadFocus = std::exchange(m_hasFocus, isChildOf(focus, &m_view));
    if (isShown() && hadFocus && !m_hasFocus && !m_isDialogUp())
        Q_EMIT leftByUser();
}

/// A mouse button went down somewhere on the desktop. Where nothing takes the keyboard from us, as on the bare desktop,
/// this is the only sign.
void PopoverPanel::onPressed()
{
    if (isShown() && !isOurs(QCursor::pos()) && !m_isDialogUp())
        Q_EMIT leftByUser();
}

/// Also the icon: a press there is a click that toggles.
bool PopoverPanel::isOurs(QPoint position) const
{
    if (paper().contains(position) || m_icon.contains(position))
        return true;
    return std::ranges::any_of(QGuiApplication::topLevelWindows(), [&](const QWindow *window) {
        return window != &m_view && window->isVisible() && isChildOf(window, &m_view) &&
               window->frameGeometry().contains(position);
    });
}

void PopoverPanel::View::keyPressEvent(QKeyEvent *event)
{
    QQuickView::keyPressEvent(event);
    if (event->isAccepted())
        return;
    if (event->key() == Qt::Key_Escape)
        onEscape();
    else if (event->key() == Qt::Key_Q && event->modifiers() == Qt::ControlModifier) // not every desktop's "Quit" is it
        onQuit();
}

} // namespace ostrel
