#include "platform/x11/capture/X11MonitorWatch.h"

#include <utility>
#include <xcb/randr.h>

namespace ostrel {

X11MonitorWatch::X11MonitorWatch(std::shared_ptr<X11Connection> connection)
    : m_connection(std::move(connection)), m_randr(m_connection->firstEventOf(xcb_randr_id)),
      m_events(m_connection, [this](const auto &event) { handle(event); })
{
    // Of monitors that are set by hand the server tells nothing through RandR, only that the root window has changed.
    m_connection->selectRootEvents(XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    if (m_randr) {
        constexpr std::uint16_t changes = XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                                          XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE;
        xcb_randr_select_input(m_connection->get(), m_connection->root(), changes);
    }
}

bool X11MonitorWatch::takeNews()
{
    m_connection->dispatchEvents();
    return std::exchange(m_hasNews, false);
}

void X11MonitorWatch::handle(const xcb_generic_event_t &event)
{
    const std::uint8_t type = typeOf(event);
    const bool isRandR =
        m_randr && (type == *m_randr + XCB_RANDR_SCREEN_CHANGE_NOTIFY || type == *m_randr + XCB_RANDR_NOTIFY);
    // Others may ask to be told of the windows on it, too.
    const bool isRoot = type == XCB_CONFIGURE_NOTIFY &&
                        reinterpret_cast<const xcb_configure_notify_event_t &>(event).window == m_connection->root();
    if (isRoot || isRandR)
        m_hasNews = true;
}

} // namespace ostrel
