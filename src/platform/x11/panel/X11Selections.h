#pragma once

#include "platform/x11/base/X11Connection.h"

#include <functional>
#include <memory>
#include <xcb/xcb.h>

namespace ostrel {

/// Follows who owns a selection. Compositors and trays make themselves known by owning one.
class X11SelectionOwner
{
public:
    /// @param changed called while events are dispatched: it asks the server nothing
    X11SelectionOwner(std::shared_ptr<X11Connection> connection, const char *selection, std::function<void()> changed);

    /// Asks the server: a round trip. @return XCB_WINDOW_NONE where nobody does
    xcb_window_t read() const;

private:
    const std::shared_ptr<X11Connection> m_connection;
    const xcb_atom_t m_selection;
    const X11Subscription m_events;
};

} // namespace ostrel
