#include "platform/x11/foreground/X11ForegroundSource.h"

#include "platform/x11/base/X11Connection.h"
#include "platform/x11/base/X11Monitors.h"
#include "platform/x11/foreground/X11WindowFacts.h"

#include <utility>

namespace ostrel {

X11ForegroundSource::X11ForegroundSource(QByteArray display, ApplicationLookup lookup)
    : m_display(std::move(display)), m_lookup(std::move(lookup))
{}

X11ForegroundSource::~X11ForegroundSource() = default;

std::optional<ForegroundApplication> X11ForegroundSource::frontmostApplication()
{
    X11Connection *server = connection();
    if (!server)
        return std::nullopt;
    const auto active = readActiveWindow(*server, std::exchange(m_window, std::nullopt));
    if (!active)
        return std::nullopt;
    m_window = active->window;
    ForegroundApplication application = m_lookup(active->owner.windowClass);
    application.processIdentifier = active->owner.pid;
    application.windowClass = active->owner.instanceAndClass;
    return application;
}

std::optional<FocusedWindow> X11ForegroundSource::focusedWindow()
{
    X11Connection *server = connection();
    if (!server || !m_window)
        return std::nullopt;
    const X11WindowLook look = readWindowLook(*server, *m_window);
    FocusedWindow window;
    window.title = look.title;
    if (look.frame)
        window.frame = QRectF(*look.frame);
    return window;
}

std::optional<QPointF> X11ForegroundSource::mouseLocation()
{
    X11Connection *server = connection();
    if (!server)
        return std::nullopt;
    const auto request = xcb_query_pointer(server->get(), server->root());
    X11OriginRequest origin(*server);
    const auto pointer = server->reply<xcb_query_pointer_reply>(request);
    const QPoint corner = origin.collect();
    // On another screen of the same server the coordinates mean another space.
    if (!pointer || !pointer->same_screen)
        return std::nullopt;
    return QPointF(QPoint(pointer->root_x, pointer->root_y) - corner);
}

QList<UnavailableFact> X11ForegroundSource::unavailableFacts()
{
    const auto activeWindow = QStringLiteral("foreground application, window title and window position");
    X11Connection *server = connection();
    if (!server) {
        const auto reason = QStringLiteral("the X server can't be reached");
        return {{.fact = activeWindow, .reason = reason},
                {.fact = QStringLiteral("pointer position"), .reason = reason}};
    }
    if (!tellsActiveWindow(*server))
        return {{.fact = activeWindow, .reason = QStringLiteral("no window manager says which window is active")}};
    return {};
}

X11Connection *X11ForegroundSource::connection()
{
    // Reading what came unasked is also what finds out that the server has gone.
    if (m_connection)
        m_connection->dispatchEvents();
    if (m_connection && m_connection->isBroken())
        m_connection.reset();
    if (!m_connection) {
        m_window.reset();
        auto opened = X11Connection::open(m_display);
        if (!opened)
            return nullptr;
        m_connection = std::move(*opened);
        internWindowAtoms(*m_connection);
    }
    return m_connection.get();
}

} // namespace ostrel
