#include "app/tray/PopoverPanel.h"

#include "app/popover/DialogSheet.h"
#include "app/popover/PopoverEngine.h"
#include "app/popover/PopoverModel.h"
#include "app/tray/PanelPlacement.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QQuickItem>
#include <QScreen>
#include <QVariantMap>
#include <QtMath>

namespace ostrel {

namespace {

/// Whether a window belongs to another one, as its dialogs do.
bool isChildOf(const QWindow *window, const QWindow *parent)
{
    for (; window != nullptr; window = window->transientParent()) {
        if (window == parent)
            return true;
    }
    return false;
}

} // namespace

PopoverPanel::PopoverPanel(PopoverModel &popoverModel, DialogSheet &sheet, std::function<bool()> isDialogUp)
    : m_isDialogUp(std::move(isDialogUp))
{
    m_view.setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    m_view.setTitle(QStringLiteral("Tamsk Ostrel"));
    m_view.setColor(Qt::transparent);
    m_view.setResizeMode(QQuickView::SizeRootObjectToView);
    m_view.onEscape = [this] { Q_EMIT escapePressed(); };
    m_view.setInitialProperties({{QStringLiteral("model"), QVariant::fromValue(&popoverModel)},
                                 {QStringLiteral("sheet"), QVariant::fromValue(&sheet)}});
    preparePopoverEngine(*m_view.engine());
    m_view.setSource(popoverViewUrl());
    connect(m_view.rootObject(), SIGNAL(implicitHeightChanged()), this, SLOT(place()));
    connect(qGuiApp, &QGuiApplication::focusWindowChanged, this, &PopoverPanel::onFocusWindowChanged);
}

PopoverPanel::~PopoverPanel()
{
    // The screens bind to what goes with us.
    m_view.setSource({});
}

void PopoverPanel::showAt(const QRect &icon)
{
    m_icon = icon;
    place();
    m_view.show();
    m_view.raise();
    m_view.requestActivate();
}

void PopoverPanel::place()
{
    QScreen *screen = QGuiApplication::screenAt(m_icon.center());
    if (screen == nullptr)
        screen = QGuiApplication::primaryScreen();
    const QQuickItem *const screens = m_view.rootObject();
    const QSize size(qCeil(screens->implicitWidth()), qCeil(screens->implicitHeight()));
    m_view.setGeometry(QRect(panelPosition(m_icon, screen->availableGeometry(), size), size));
}

void PopoverPanel::onFocusWindowChanged(const QWindow *focus)
{
    if (isShown() && !isChildOf(focus, &m_view) && !m_isDialogUp())
        Q_EMIT leftByUser();
}

void PopoverPanel::View::keyPressEvent(QKeyEvent *event)
{
    QQuickView::keyPressEvent(event);
    if (!event->isAccepted() && event->key() == Qt::Key_Escape)
        onEscape();
}

} // namespace ostrel
