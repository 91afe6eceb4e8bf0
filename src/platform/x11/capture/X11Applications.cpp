#include "platform/x11/capture/X11Applications.h"

#include "platform/x11/base/X11Connection.h"

#include <span>
#include <vector>

namespace ostrel {

namespace {

using PropertyReply = X11Reply<xcb_get_property_reply_t>;

/// The 32-bit values of a property; empty when it is missing or of another kind.
std::span<const uint32_t> valuesOf(const PropertyReply &property, xcb_atom_t type)
{
    if (!property || property->type != type || property->format != 32)
        return {};
    return {static_cast<const uint32_t *>(xcb_get_property_value(property.get())), property->value_len};
}

xcb_get_property_cookie_t request(X11Connection &connection, xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
                                  uint32_t maxValues)
{
    constexpr uint8_t keep = 0;
    return xcb_get_property(connection.get(), keep, window, property, type, 0, maxValues);
}

} // namespace

QList<ScreenCaptureApplicationIdentity> applicationsWithWindows(X11Connection &connection)
{
    constexpr uint32_t enoughWindows = 16384;
    connection.internAtoms({"_NET_CLIENT_LIST", "_NET_WM_PID"});
    const xcb_atom_t pidAtom = connection.atom("_NET_WM_PID");
    const PropertyReply list = connection.reply<xcb_get_property_reply>(
        request(connection, connection.root(), connection.atom("_NET_CLIENT_LIST"), XCB_ATOM_WINDOW, enoughWindows));

    std::vector<xcb_get_property_cookie_t> cookies;
    for (const uint32_t window : valuesOf(list, XCB_ATOM_WINDOW))
        cookies.push_back(request(connection, window, pidAtom, XCB_ATOM_CARDINAL, 1));

    QList<ScreenCaptureApplicationIdentity> applications;
    for (const auto cookie : cookies) {
        const PropertyReply property = connection.reply<xcb_get_property_reply>(cookie);
        const auto pid = valuesOf(property, XCB_ATOM_CARDINAL);
        if (pid.empty())
            continue;
        const ScreenCaptureApplicationIdentity application{.processID = qint32(pid.front()), .bundleIdentifier = {}};
        if (!applications.contains(application))
            applications.append(application);
    }
    return applications;
}

} // namespace ostrel
