#include "platform/x11/capture/X11PrivateWindows.h"

#include "base/Log.h"
#include "platform/x11/capture/X11WindowComposer.h"

#include <span>
#include <utility>

namespace ostrel {

namespace {

template <class Event>
const Event &as(const xcb_generic_event_t &event)
{
    return reinterpret_cast<const Event &>(event);
}

/// The window that selected the event, or in which something has happened; XCB_WINDOW_NONE for events of other kinds.
xcb_window_t placeOf(const xcb_generic_event_t &event)
{
    switch (typeOf(event)) {
    case XCB_CREATE_NOTIFY:
        return as<xcb_create_notify_event_t>(event).parent;
    case XCB_MAP_NOTIFY:
        return as<xcb_map_notify_event_t>(event).event;
    case XCB_UNMAP_NOTIFY:
        return as<xcb_unmap_notify_event_t>(event).event;
    case XCB_DESTROY_NOTIFY:
        return as<xcb_destroy_notify_event_t>(event).event;
    case XCB_REPARENT_NOTIFY:
        return as<xcb_reparent_notify_event_t>(event).event;
    case XCB_CONFIGURE_NOTIFY:
        return as<xcb_configure_notify_event_t>(event).event;
    default:
        return XCB_WINDOW_NONE;
    }
}

} // namespace

X11PrivateWindows::X11PrivateWindows(std::shared_ptr<X11Connection> connection, X11Privacy privacy,
                                     std::function<std::chrono::milliseconds()> monotonicTime)
    : m_connection(std::move(connection)), m_monotonicTime(std::move(monotonicTime)),
      m_judge(m_connection, std::move(privacy)), m_events(m_connection, [this](const auto &event) { handle(event); })
{
    // Before the windows are read: whatever comes later is told.
    m_connection->selectRootEvents(XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY);
    readAll();
}

void X11PrivateWindows::readAll()
{
    xcb_connection_t *server = m_connection->get();
    const auto tree = m_connection->reply<xcb_query_tree_reply>(xcb_query_tree(server, m_connection->root()));
    if (!tree)
        return;
    for (const xcb_window_t window : std::span(xcb_query_tree_children(tree.get()), std::size_t(tree->children_len))) {
        const auto attributes =
            m_connection->reply<xcb_get_window_attributes_reply>(xcb_get_window_attributes(server, window));
        if (attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE)
            appear(window);
    }
}

void X11PrivateWindows::leaveOut(const QList<qint32> &processes)
{
    if (m_judge.leaveOut(processes))
        doubtAll();
}

void X11PrivateWindows::update()
{
    m_connection->dispatchEvents();
    if (m_judge.takeRules())
        doubtAll();
    const auto before = m_private;
    askDoubtful();
    if (m_private != before) {
        // Dialogs are as private as the window for which they are there, and nobody tells whose they are.
        doubtAll();
        askDoubtful();
    }
    logCount();
}

void X11PrivateWindows::askDoubtful()
{
    for (const xcb_window_t window : std::exchange(m_doubts, {}))
        ask(window);
}

void X11PrivateWindows::logCount()
{
    if (m_private.size() == m_loggedCount)
        return;
    m_loggedCount = m_private.size();
    qCInfo(logScreenCapture, "private windows kept out of the pictures by %s: %zu",
           X11WindowComposer::isPossible(*m_connection) ? "compositing" : "covering them", m_loggedCount);
}

void X11PrivateWindows::doubtAll()
{
    for (const auto &[window, known] : m_windows)
        m_doubts.insert(window);
}

void X11PrivateWindows::ask(xcb_window_t window)
{
    const auto known = m_windows.find(window);
    if (known == m_windows.end())
        return;
    xcb_connection_t *server = m_connection->get();
    const auto attributesAsked = xcb_get_window_attributes(server, window);
    const auto geometryAsked = xcb_get_geometry(server, window);
    const auto attributes = m_connection->reply<xcb_get_window_attributes_reply>(attributesAsked);
    const auto geometry = m_connection->reply<xcb_get_geometry_reply>(geometryAsked);
    X11TopWindow &top = known->second;
    top.isDrawn = attributes && geometry && attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT;
    if (!top.isDrawn)
        return;
    top.visual = attributes->visual;
    top.border = geometry->border_width;
    top.outer = QRect(geometry->x, geometry->y, geometry->width + 2 * geometry->border_width,
                      geometry->height + 2 * geometry->border_width);
    const X11WindowJudge::Verdict verdict = m_judge.judge(window);
    for (const xcb_window_t asked : verdict.asked)
        m_topOf[asked] = window;
    top.isPrivate = verdict.isPrivate;
    if (verdict.isPrivate)
        m_private.insert(window);
    else
        m_private.erase(window);
}

void X11PrivateWindows::handle(const xcb_generic_event_t &event)
{
    // What a client has sent is no news of the server; clients announce so that a window will be withdrawn.
    if (typeOf(event) != event.response_type)
        return;
    if (typeOf(event) == XCB_PROPERTY_NOTIFY) {
        const auto &change = as<xcb_property_notify_event_t>(event);
        if (m_judge.isRelevant(change.atom))
            doubtInner(change.window);
        return;
    }
    const xcb_window_t place = placeOf(event);
    if (place == m_connection->root())
        handleOnRoot(event);
    else if (place != XCB_WINDOW_NONE && typeOf(event) != XCB_CONFIGURE_NOTIFY)
        doubtInner(place);
}

void X11PrivateWindows::handleOnRoot(const xcb_generic_event_t &event)
{
    switch (typeOf(event)) {
    case XCB_MAP_NOTIFY:
        return appear(as<xcb_map_notify_event_t>(event).window);
    case XCB_UNMAP_NOTIFY:
        return disappear(as<xcb_unmap_notify_event_t>(event).window);
    case XCB_DESTROY_NOTIFY:
        return disappear(as<xcb_destroy_notify_event_t>(event).window);
    case XCB_REPARENT_NOTIFY:
        // Into a frame, which is told by the frame as well, or out of one: then it is mapped next.
        return disappear(as<xcb_reparent_notify_event_t>(event).window);
    case XCB_CONFIGURE_NOTIFY:
        return moved(as<xcb_configure_notify_event_t>(event));
    default:
        return;
    }
}

void X11PrivateWindows::moved(const xcb_configure_notify_event_t &event)
{
    const auto known = m_windows.find(event.window);
    if (known == m_windows.end())
        return;
    X11TopWindow &top = known->second;
    const QRect outer(event.x, event.y, event.width + 2 * event.border_width, event.height + 2 * event.border_width);
    if (outer.size() != top.outer.size())
        top.changedAt = m_monotonicTime();
    top.outer = outer;
    top.border = event.border_width;
    if (top.isPrivate)
        m_doubts.insert(event.window); // where it is covered, it has to be covered elsewhere
}

void X11PrivateWindows::appear(xcb_window_t window)
{
    X11TopWindow &top = m_windows[window] = X11TopWindow();
    top.changedAt = m_monotonicTime();
    m_doubts.insert(window);
}

void X11PrivateWindows::disappear(xcb_window_t window)
{
    m_windows.erase(window);
    m_private.erase(window);
    std::erase_if(m_topOf, [window](const auto &entry) { return entry.second == window; });
}

void X11PrivateWindows::doubtInner(xcb_window_t inner)
{
    if (const auto found = m_topOf.find(inner); found != m_topOf.end())
        m_doubts.insert(found->second);
}

} // namespace ostrel
