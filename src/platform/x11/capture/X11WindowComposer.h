#pragma once

#include <QRect>

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <unordered_map>
#include <xcb/render.h>
#include <xcb/xproto.h>

namespace ostrel {

class X11Connection;
class X11PrivateWindows;
struct X11TopWindow;

/// Puts a picture of a part of the screen together in the server, from the windows' own pictures and the wallpaper,
/// without the private ones. For as long as it exists, each window has a picture of its own (the server redirects it),
/// which nobody sees but by a slower server. One thread at a time.
///
/// A window's own picture begins as a copy of what the screen showed there, and may so hold parts of a private window
/// until its program has drawn it. Hence two rules: before windows are redirected, the private ones are painted over
/// and asked to draw themselves anew; and a window that comes or changes its size later is left out for a while.
class X11WindowComposer
{
public:
    /// How long a window may take to draw what it shows.
    static constexpr std::chrono::milliseconds settling{500};

    /// Whether the server has what it takes; no round trip.
    static bool isPossible(const X11Connection &connection);

    /// Asks once more which windows are private. All of it happens between two requests of any other client.
    /// @param size of the pictures
    static std::unique_ptr<X11WindowComposer> make(std::shared_ptr<X11Connection> connection, QSize size,
                                                   X11PrivateWindows &windows,
                                                   std::function<std::chrono::milliseconds()> monotonicTime);
    ~X11WindowComposer();
    X11WindowComposer(const X11WindowComposer &) = delete;
    X11WindowComposer &operator=(const X11WindowComposer &) = delete;

    /// Composes the picture; one round trip.
    /// @param corner  of the part, pixels on the X screen
    /// @param leftOut windows that are left out besides the private ones
    void compose(QPoint corner, const std::set<xcb_window_t> &leftOut);

    /// The windows that are in the picture, as far as they lie in that part.
    const std::set<xcb_window_t> &drawn() const { return m_drawn; }
    /// The picture: a pixmap of the root window's depth.
    xcb_pixmap_t pixmap() const { return m_pixmap; }

private:
    X11WindowComposer(std::shared_ptr<X11Connection> connection, QSize size, const X11PrivateWindows &windows,
                      std::function<std::chrono::milliseconds()> monotonicTime);

    void readFormats();
    void drawBackground(QPoint corner, xcb_pixmap_t wallpaper, bool isRootPainted);
    void drawWindow(xcb_window_t window, const X11TopWindow &top, QPoint corner, bool isBlended);
    bool hasSettled(const X11TopWindow &top) const;

    const std::shared_ptr<X11Connection> m_connection;
    const QSize m_size;
    const X11PrivateWindows &m_windows;
    const std::function<std::chrono::milliseconds()> m_monotonicTime;
    std::unordered_map<xcb_visualid_t, xcb_render_pictformat_t> m_formats;
    const xcb_pixmap_t m_pixmap;
    const xcb_gcontext_t m_context;
    const xcb_render_picture_t m_picture;
    std::set<xcb_window_t> m_drawn;
    std::chrono::milliseconds m_madeAt{};
};

} // namespace ostrel
