#include "platform/x11/foreground/X11ForegroundSource.h"

#include "platform/x11/base/X11Connection.h"
#include "platform/x11/base/X11Monitors.h"
#include "platform/x11/base/X11WindowManagerHints.h"
#include "platform/x11/foreground/X11WindowFacts.h"

#include <utility>

namespace ostrel {

namespace {

FocusedWindow focusedWindowIn(const X11WindowLook &look)
{
    return {.title = look.title, .frame = look.frame ? std::optional(QRectF(*look.frame)) : std::nullopt};
}

} // namespace

X11ForegroundSource::X11ForegroundSource(QByteArray display, ApplicationLookup lookup)
    : m_display(std::move(display)), m_lookup(std::move(lookup))
{}

X11ForegroundSource::~X11ForegroundSource() = default;

std::optional<ForegroundApplication> X11ForegroundSource::frontmostApplication()
{
    X11Connection *server = connection();
    if (!server)
        return std::nullopt;
    const auto likely =
        m_window ? std::optional(X11LikelyWindow{.window = *m_window, .asksLook = m_askedWindow}) : std::nullopt;
    forgetWindow();
    const auto active = readActiveWindow(*server, likely);
    if (!active)
        return std::nullopt;
    m_window = active->window;
    if (active->look)
        m_readWindow = focusedWindowIn(*active->look);
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
    m_askedWindow = true;
    if (auto window = std::exchange(m_readWindow, std::nullopt))
        return window;
    return focusedWindowIn(readWindowLook(*server, *m_window));
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
    if (!windowManagerSupports(*server, "_NET_ACTIVE_WINDOW"))
        return {{.fact = activeWindow, .reason = QStringLiteral("no window manager says which window is active")}};
    return {};
}

void X11ForegroundSource::forgetWindow()
{
    m_window.reset();
    m_askedWindow = false;
    m_readWindow.reset();
}

X11Connection *X11ForegroundSource::connection()
{
    // Reading what came unasked is also what finds out that the server has gone.
    if (m_connection)
        m_connection->dispatchEvents();
    if (m_connection && m_connection->isBroken())
        m_connection.reset();
    if (!m_connection) {
        forgetWindow();
        auto opened = X11Connection::open(m_display);
        if (!opened)
            return nullptr;
        m_connection = std::move(*opened);
        internWindowAtoms(*m_connection);
    }
    return m_connection.get();
}

} // namespace ostrel
