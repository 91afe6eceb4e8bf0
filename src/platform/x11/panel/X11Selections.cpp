#include "platform/x11/panel/X11Selections.h"

#include <utility>
#include <xcb/xfixes.h>

namespace ostrel {

X11SelectionOwner::X11SelectionOwner(std::shared_ptr<X11Connection> connection, const char *selection,
                                     std::function<void()> changed)
    : m_connection(std::move(connection)), m_selection(m_connection->atom(selection)),
      m_events(m_connection, [first = m_connection->firstEventOf(xcb_xfixes_id), selection = m_selection,
                              changed = std::move(changed)](const xcb_generic_event_t &event) {
          if (!first || typeOf(event) != *first + XCB_XFIXES_SELECTION_NOTIFY)
              return;
          if (reinterpret_cast<const xcb_xfixes_selection_notify_event_t &>(event).selection == selection)
              changed();
      })
{
    if (!m_connection->firstEventOf(xcb_xfixes_id))
        return;
    // The server answers nothing of this extension to those who have not told their version.
    xcb_discard_reply(m_connection->get(),
                      xcb_xfixes_query_version(m_connection->get(), XCB_XFIXES_MAJOR_VERSION, 0).sequence);
    constexpr std::uint32_t changes = XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE;
    xcb_xfixes_select_selection_input(m_connection->get(), m_connection->root(), m_selection, changes);
}

xcb_window_t X11SelectionOwner::read() const
{
    const auto answer =
        m_connection->reply<xcb_get_selection_owner_reply>(xcb_get_selection_owner(m_connection->get(), m_selection));
    return answer ? answer->owner : xcb_window_t(XCB_WINDOW_NONE);
}

} // namespace ostrel
