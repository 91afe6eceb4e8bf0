#include "OwnWindow.h"

#include "platform/x11/base/X11Connection.h"

#include <QSysInfo>

#include <cstdlib>
#include <unistd.h>
#include <xcb/xcb.h>

namespace ostrel {

OwnWindow::OwnWindow(const QByteArray &display, const QRect &place)
{
    auto opened = X11Connection::open(display);
    if (!opened)
        qFatal("%s", qUtf8Printable(opened.error().localizedDescription));
    m_connection = std::move(*opened);
    xcb_connection_t *const connection = m_connection->get();
    const xcb_window_t window = xcb_generate_id(connection);
    const uint32_t white = 0xffffff;
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, m_connection->root(), int16_t(place.x()),
                      int16_t(place.y()), uint16_t(place.width()), uint16_t(place.height()), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL, &white);
    constexpr const char *name = "_NET_WM_PID";
    auto *const atom =
        xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, uint16_t(qstrlen(name)), name), nullptr);
    const auto process = uint32_t(::getpid());
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, atom ? atom->atom : XCB_NONE, XCB_ATOM_CARDINAL, 32,
                        1, &process);
    // Without it the number might be that of a process on another machine.
    const QByteArray machine = QSysInfo::machineHostName().toLocal8Bit();
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLIENT_MACHINE, XCB_ATOM_STRING, 8,
                        uint32_t(machine.size()), machine.constData());
    std::free(atom);
    xcb_map_window(connection, window);
    std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr)); // now it is done
}

OwnWindow::~OwnWindow() = default;

} // namespace ostrel
