#include "platform/x11/base/X11WindowManagerHints.h"

#include "platform/x11/base/X11Connection.h"

#include <algorithm>
#include <cstdint>
#include <span>

namespace ostrel {

namespace {

X11Reply<xcb_get_property_reply_t> readProperty(X11Connection &connection, xcb_window_t window, const char *name,
                                                xcb_atom_t type)
{
    constexpr uint32_t longest = 4096; // of 4 bytes each
    return connection.reply<xcb_get_property_reply>(
        xcb_get_property(connection.get(), 0, window, connection.atom(name), type, 0, longest));
}

std::span<const uint32_t> words(const X11Reply<xcb_get_property_reply_t> &property)
{
    if (!property || property->format != 32)
        return {};
    return {static_cast<const uint32_t *>(xcb_get_property_value(property.get())), property->value_len};
}

} // namespace

xcb_window_t windowManagerWindow(X11Connection &connection)
{
    const auto pointedAtBy = [&connection](xcb_window_t window) {
        const auto property = readProperty(connection, window, "_NET_SUPPORTING_WM_CHECK", XCB_ATOM_WINDOW);
        const auto found = words(property);
        return found.empty() ? xcb_window_t(XCB_WINDOW_NONE) : xcb_window_t(found.front());
    };
    // One that was killed leaves the root's properties behind, so the window must point at itself.
    const xcb_window_t window = pointedAtBy(connection.root());
    return window != XCB_WINDOW_NONE && pointedAtBy(window) == window ? window : xcb_window_t(XCB_WINDOW_NONE);
}

bool windowManagerSupports(X11Connection &connection, const char *hint)
{
    if (windowManagerWindow(connection) == XCB_WINDOW_NONE)
        return false;
    const auto supported = readProperty(connection, connection.root(), "_NET_SUPPORTED", XCB_ATOM_ATOM);
    const xcb_atom_t wanted = connection.atom(hint);
    return std::ranges::any_of(words(supported), [=](uint32_t each) { return each == wanted; });
}

} // namespace ostrel
