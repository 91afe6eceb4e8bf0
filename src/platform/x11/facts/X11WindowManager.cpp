#include "platform/x11/facts/X11WindowManager.h"

#include "platform/x11/base/X11Connection.h"
#include "platform/x11/base/X11WindowManagerHints.h"

namespace ostrel {

namespace {

QString nameOf(X11Connection &connection, xcb_window_t window)
{
    constexpr uint32_t longest = 4096; // of 4 bytes each
    const auto name = connection.reply<xcb_get_property_reply>(xcb_get_property(
        connection.get(), 0, window, connection.atom("_NET_WM_NAME"), connection.atom("UTF8_STRING"), 0, longest));
    return name ? QString::fromUtf8(static_cast<const char *>(xcb_get_property_value(name.get())),
                                    xcb_get_property_value_length(name.get()))
                : QString();
}

} // namespace

std::optional<WindowManagerFacts> readWindowManager(X11Connection &connection)
{
    const xcb_window_t window = windowManagerWindow(connection);
    if (window == XCB_WINDOW_NONE)
        return std::nullopt;
    WindowManagerFacts facts;
    facts.name = nameOf(connection, window);
    facts.tellsActiveWindow = windowManagerSupports(connection, "_NET_ACTIVE_WINDOW");
    return facts;
}

} // namespace ostrel
