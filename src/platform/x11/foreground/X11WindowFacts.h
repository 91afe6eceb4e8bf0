#pragma once

#include <QByteArray>
#include <QRect>
#include <QString>
#include <QtGlobal>

#include <optional>
#include <xcb/xcb.h>

namespace ostrel {

class X11Connection;

/// One property of a window: asked for at construction, collected once.
class X11PropertyRequest
{
public:
    struct Value {
        xcb_atom_t type = XCB_ATOM_NONE;
        int format = 0;   ///< bits of an item: 8, 16 or 32
        QByteArray bytes; ///< items of 32 bits in this machine's byte order

        /// The item as an unsigned number; absent where there are fewer or where they have another size.
        std::optional<quint32> cardinal(qsizetype index) const;
    };

    /// At most 64 KiB of it: a title can be of any length.
    X11PropertyRequest(X11Connection &connection, xcb_window_t window, xcb_atom_t property);
    std::optional<Value> collect();

private:
    X11Connection &m_connection;
    xcb_get_property_cookie_t m_cookie;
};

/// Who a window belongs to.
struct X11WindowOwner {
    QString windowClass;      ///< the class part of WM_CLASS; empty where there is none
    QString instanceAndClass; ///< both parts, a blank between them
    qint32 pid = 0;           ///< 0 where it runs on another machine or the window doesn't say
};
X11WindowOwner readWindowOwner(X11Connection &connection, xcb_window_t window);

/// A window's title, by whichever property tells it; absent where none does.
std::optional<QString> readWindowTitle(X11Connection &connection, xcb_window_t window);

/// What a window shows and where.
struct X11WindowLook {
    std::optional<QString> title;
    /// With the window manager's decorations, without the shadow that a program draws itself; X screen pixels from the
    /// main monitor's corner.
    std::optional<QRect> frame;
};
X11WindowLook readWindowLook(X11Connection &connection, xcb_window_t window);

/// The window that the window manager says is active, and its owner.
struct X11ActiveWindow {
    xcb_window_t window = XCB_WINDOW_NONE;
    X11WindowOwner owner;
    std::optional<X11WindowLook> look; ///< where it was asked for along with the rest
};
/// What the last answer leads to expect.
struct X11LikelyWindow {
    xcb_window_t window = XCB_WINDOW_NONE;
    bool asksLook = false; ///< its look is to be read, too
};
/// @param likely if it is still the active one, this is one round trip instead of two
/// @return absent where no window is active, or nobody says
std::optional<X11ActiveWindow> readActiveWindow(X11Connection &connection, std::optional<X11LikelyWindow> likely);

/// The atoms that the functions above need, in one round trip.
void internWindowAtoms(X11Connection &connection);

} // namespace ostrel
