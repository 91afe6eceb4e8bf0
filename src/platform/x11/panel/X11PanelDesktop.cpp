#include "platform/x11/panel/X11PanelDesktop.h"

#include "platform/x11/panel/X11ClickMonitor.h"

#include <QGuiApplication>
#include <QWindow>

#include <array>
#include <qguiapplication_platform.h>
#include <utility>
#include <xcb/shape.h>

namespace ostrel {

namespace {

constexpr const char *compositorSelection = "_NET_WM_CM_S0";
constexpr const char *traySelection = "_NET_SYSTEM_TRAY_S0";
constexpr const char *trayColors = "_NET_SYSTEM_TRAY_COLORS";
/// Four colours of three parts: for marks, errors, warnings and success.
constexpr std::uint32_t trayColorParts = 12;
/// Window managers know by it which of a window's margins are only there for a shadow.
constexpr const char *frameExtents = "_GTK_FRAME_EXTENTS";
constexpr const char *windowState = "_NET_WM_STATE";
constexpr const char *skipTaskBar = "_NET_WM_STATE_SKIP_TASKBAR";
constexpr const char *skipPager = "_NET_WM_STATE_SKIP_PAGER";

/// The toolkit's own connection. What is asked of its windows goes this way, behind the request that makes them.
xcb_connection_t *toolkitConnection()
{
    auto *const x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 == nullptr ? nullptr : x11->connection();
}

} // namespace

X11PanelDesktop::X11PanelDesktop(std::shared_ptr<X11Connection> connection)
    : m_connection(std::move(connection)),
      m_compositor(m_connection, compositorSelection, [this] { m_news.compositor = true; }),
      m_trayOwner(m_connection, traySelection, [this] { m_news.tray = true; }),
      m_properties(m_connection, [this](const auto &event) { noteProperty(event); }),
      m_notifier(xcb_get_file_descriptor(m_connection->get()), QSocketNotifier::Read)
{
    m_connection->internAtoms({trayColors, frameExtents, windowState, skipTaskBar, skipPager});
    connect(&m_notifier, &QSocketNotifier::activated, this, &X11PanelDesktop::readEvents);
    readCompositor();
    readTray();
}

bool X11PanelDesktop::isLost() const
{
    xcb_connection_t *const connection = toolkitConnection();
    return connection != nullptr && xcb_connection_has_error(connection) != 0;
}

std::unique_ptr<PanelDesktop::ClickMonitor> X11PanelDesktop::monitorClicks(std::function<void()> pressed)
{
    m_pressed = std::move(pressed);
    m_news.press = false;
    auto monitor = X11ClickMonitor::start(m_connection, [this] { m_news.press = true; });
    readEvents(); // those that have come with the answers wake nobody any more
    return monitor;
}

void X11PanelDesktop::setShadow(QWindow &window, int width)
{
    xcb_connection_t *const connection = toolkitConnection();
    if (connection == nullptr)
        return;
    const auto id = xcb_window_t(window.winId());
    const double scale = window.devicePixelRatio();
    const auto margin = std::uint32_t(qRound(width * scale));
    const std::array<std::uint32_t, 4> extents{margin, margin, margin, margin};
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, m_connection->atom(frameExtents), XCB_ATOM_CARDINAL, 32,
                        extents.size(), extents.data());
    const QSize size = window.size() * scale;
    const xcb_rectangle_t inside{.x = std::int16_t(margin),
                                 .y = std::int16_t(margin),
                                 .width = std::uint16_t(size.width() - 2 * int(margin)),
                                 .height = std::uint16_t(size.height() - 2 * int(margin))};
    if (m_connection->firstEventOf(xcb_shape_id))
        xcb_shape_rectangles(connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED, id, 0, 0, 1,
                             &inside);
    xcb_flush(connection);
}

void X11PanelDesktop::keepOutOfLists(QWindow &window)
{
    xcb_connection_t *const connection = toolkitConnection();
    if (connection == nullptr)
        return;
    // Of a window that is not shown this is its own, and window managers take it away when it is hidden. The toolkit
    // adds what it wants itself.
    const std::array<xcb_atom_t, 2> states{m_connection->atom(skipTaskBar), m_connection->atom(skipPager)};
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, xcb_window_t(window.winId()),
                        m_connection->atom(windowState), XCB_ATOM_ATOM, 32, states.size(), states.data());
}

void X11PanelDesktop::readEvents()
{
    m_connection->dispatchEvents();
    if (m_connection->isBroken())
        m_notifier.setEnabled(false); // it would be ready to be read for ever
    // Asking brings further events, which then wake nobody.
    while (m_news.compositor || m_news.tray) {
        if (std::exchange(m_news.compositor, false))
            readCompositor();
        if (std::exchange(m_news.tray, false))
            readTray();
        m_connection->dispatchEvents();
    }
    if (std::exchange(m_news.press, false)) {
        const auto pressed = m_pressed; // it may begin another monitoring
        pressed();
    }
}

void X11PanelDesktop::readCompositor()
{
    const bool isComposited = m_compositor.read() != XCB_WINDOW_NONE;
    if (std::exchange(m_isComposited, isComposited) != isComposited)
        Q_EMIT compositedChanged();
}

void X11PanelDesktop::readTray()
{
    m_tray = m_trayOwner.read();
    const auto foreground = m_tray == XCB_WINDOW_NONE ? std::nullopt : readTrayColors();
    if (std::exchange(m_trayForeground, foreground) != foreground)
        Q_EMIT trayForegroundChanged();
}

std::optional<QColor> X11PanelDesktop::readTrayColors() const
{
    constexpr std::uint32_t changes = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(m_connection->get(), m_tray, XCB_CW_EVENT_MASK, &changes);
    const auto answer = m_connection->reply<xcb_get_property_reply>(xcb_get_property(
        m_connection->get(), 0, m_tray, m_connection->atom(trayColors), XCB_ATOM_CARDINAL, 0, trayColorParts));
    if (!answer || answer->format != 32 || answer->value_len < 3)
        return std::nullopt;
    const auto *const parts = static_cast<const std::uint32_t *>(xcb_get_property_value(answer.get()));
    return QColor::fromRgba64(quint16(parts[0]), quint16(parts[1]), quint16(parts[2]));
}

void X11PanelDesktop::noteProperty(const xcb_generic_event_t &event)
{
    if (m_tray != XCB_WINDOW_NONE && typeOf(event) == XCB_PROPERTY_NOTIFY &&
        reinterpret_cast<const xcb_property_notify_event_t &>(event).window == m_tray)
        m_news.tray = true;
}

} // namespace ostrel
