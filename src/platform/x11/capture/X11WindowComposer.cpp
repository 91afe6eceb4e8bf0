#include "platform/x11/capture/X11WindowComposer.h"

#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11PrivateWindows.h"
#include "platform/x11/foreground/X11WindowFacts.h"

#include <limits>
#include <span>
#include <utility>
#include <vector>
#include <xcb/composite.h>
#include <xcb/xfixes.h>

namespace ostrel {

namespace {

constexpr char wallpaperName[] = "_XROOTPMAP_ID";
constexpr char compositorName[] = "_NET_WM_CM_S0";
constexpr std::uint32_t black = 0;

/// Nothing of any other client happens between what is sent while it exists. Nothing is waited for at its end.
class ServerGrab
{
public:
    explicit ServerGrab(X11Connection &connection) : m_connection(connection) { xcb_grab_server(connection.get()); }
    ServerGrab(const ServerGrab &) = delete;
    ServerGrab &operator=(const ServerGrab &) = delete;
    ~ServerGrab()
    {
        xcb_ungrab_server(m_connection.get());
        xcb_flush(m_connection.get());
    }

private:
    X11Connection &m_connection;
};

/// Those private windows that have no picture of their own yet: the screen shows them where they are.
std::vector<xcb_window_t> windowsOnScreen(X11Connection &connection, const X11PrivateWindows &windows)
{
    xcb_connection_t *server = connection.get();
    std::vector<xcb_window_t> found;
    for (const xcb_window_t window : windows.privateWindows()) {
        const xcb_pixmap_t pixmap = xcb_generate_id(server);
        if (!connection.check(xcb_composite_name_window_pixmap_checked(server, window, pixmap)))
            found.push_back(window);
        xcb_free_pixmap(server, pixmap);
    }
    return found;
}

/// Only where the window is seen: others may lie upon it.
void paintOver(X11Connection &connection, xcb_window_t window)
{
    xcb_connection_t *server = connection.get();
    const xcb_gcontext_t context = xcb_generate_id(server);
    const std::uint32_t values[] = {black, XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS};
    xcb_create_gc(server, context, window, XCB_GC_FOREGROUND | XCB_GC_SUBWINDOW_MODE, values);
    constexpr xcb_rectangle_t all{0, 0, std::numeric_limits<std::int16_t>::max(),
                                  std::numeric_limits<std::int16_t>::max()};
    xcb_poly_fill_rectangle(server, window, context, 1, &all);
    xcb_free_gc(server, context);
}

/// Has a window and all that it holds drawn anew by whoever draws it.
void redraw(X11Connection &connection, xcb_window_t window)
{
    constexpr std::size_t mostWindows = 512;
    xcb_connection_t *server = connection.get();
    std::vector<xcb_window_t> all{window};
    for (std::size_t next = 0; next < all.size() && next < mostWindows; ++next) {
        xcb_clear_area(server, 1, all[next], 0, 0, 0, 0);
        const auto tree = connection.reply<xcb_query_tree_reply>(xcb_query_tree(server, all[next]));
        if (!tree)
            continue;
        const std::span children(xcb_query_tree_children(tree.get()), std::size_t(tree->children_len));
        all.insert(all.end(), children.begin(), children.end());
    }
}

} // namespace

bool X11WindowComposer::isPossible(const X11Connection &connection)
{
    return connection.firstEventOf(xcb_composite_id) && connection.firstEventOf(xcb_render_id) &&
           connection.firstEventOf(xcb_xfixes_id);
}

std::unique_ptr<X11WindowComposer> X11WindowComposer::make(std::shared_ptr<X11Connection> connection, QSize size,
                                                           X11PrivateWindows &windows,
                                                           std::function<std::chrono::milliseconds()> monotonicTime)
{
    xcb_connection_t *server = connection->get();
    // The server refuses requests of extensions whose versions were not asked for.
    const auto composite = xcb_composite_query_version(server, 0, 4);
    const auto fixes = xcb_xfixes_query_version(server, 5, 0);
    const auto render = xcb_render_query_version(server, 0, 11);
    connection->reply<xcb_composite_query_version_reply>(composite);
    connection->reply<xcb_xfixes_query_version_reply>(fixes);
    connection->reply<xcb_render_query_version_reply>(render);
    connection->internAtoms({wallpaperName, compositorName});

    const ServerGrab grab(*connection);
    windows.update(); // nobody can change anything after that
    const std::vector<xcb_window_t> onScreen = windowsOnScreen(*connection, windows);
    for (const xcb_window_t window : onScreen)
        paintOver(*connection, window);
    std::unique_ptr<X11WindowComposer> composer(
        new X11WindowComposer(connection, size, windows, std::move(monotonicTime)));
    for (const xcb_window_t window : onScreen)
        redraw(*connection, window);
    return composer;
}

X11WindowComposer::X11WindowComposer(std::shared_ptr<X11Connection> connection, QSize size,
                                     const X11PrivateWindows &windows,
                                     std::function<std::chrono::milliseconds()> monotonicTime)
    : m_connection(std::move(connection)), m_size(size), m_windows(windows), m_monotonicTime(std::move(monotonicTime)),
      m_pixmap(xcb_generate_id(m_connection->get())), m_context(xcb_generate_id(m_connection->get())),
      m_picture(xcb_generate_id(m_connection->get())), m_madeAt(m_monotonicTime())
{
    xcb_connection_t *server = m_connection->get();
    const xcb_screen_t &screen = m_connection->screen();
    xcb_composite_redirect_subwindows(server, screen.root, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    readFormats();
    xcb_create_pixmap(server, screen.root_depth, m_pixmap, screen.root, std::uint16_t(size.width()),
                      std::uint16_t(size.height()));
    const std::uint32_t values[] = {black, 0};
    xcb_create_gc(server, m_context, m_pixmap, XCB_GC_FOREGROUND | XCB_GC_GRAPHICS_EXPOSURES, values);
    xcb_render_create_picture(server, m_picture, m_pixmap, m_formats[screen.root_visual], 0, nullptr);
}

X11WindowComposer::~X11WindowComposer()
{
    xcb_connection_t *server = m_connection->get();
    xcb_render_free_picture(server, m_picture);
    xcb_free_gc(server, m_context);
    xcb_free_pixmap(server, m_pixmap);
    xcb_composite_unredirect_subwindows(server, m_connection->root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    xcb_flush(server);
}

void X11WindowComposer::readFormats()
{
    const auto formats =
        m_connection->reply<xcb_render_query_pict_formats_reply>(xcb_render_query_pict_formats(m_connection->get()));
    if (!formats)
        return;
    for (auto screen = xcb_render_query_pict_formats_screens_iterator(formats.get()); screen.rem > 0;
         xcb_render_pictscreen_next(&screen)) {
        for (auto depth = xcb_render_pictscreen_depths_iterator(screen.data); depth.rem > 0;
             xcb_render_pictdepth_next(&depth)) {
            const std::span visuals(xcb_render_pictdepth_visuals(depth.data), depth.data->num_visuals);
            for (const xcb_render_pictvisual_t &visual : visuals)
                m_formats[visual.visual] = visual.format;
        }
    }
}

void X11WindowComposer::compose(QPoint corner, const std::set<xcb_window_t> &leftOut)
{
    xcb_connection_t *server = m_connection->get();
    const xcb_window_t root = m_connection->root();
    const auto treeAsked = xcb_query_tree(server, root);
    const auto compositorAsked = xcb_get_selection_owner(server, m_connection->atom(compositorName));
    X11PropertyRequest wallpaper(*m_connection, root, m_connection->atom(wallpaperName));
    const auto tree = m_connection->reply<xcb_query_tree_reply>(treeAsked);
    const auto compositor = m_connection->reply<xcb_get_selection_owner_reply>(compositorAsked);
    const auto wallpaperValue = wallpaper.collect();

    const bool hasCompositor = compositor && compositor->owner != XCB_WINDOW_NONE;
    m_drawn.clear();
    drawBackground(corner, wallpaperValue ? wallpaperValue->cardinal(0).value_or(XCB_PIXMAP_NONE) : XCB_PIXMAP_NONE,
                   !hasCompositor);
    if (!tree)
        return;
    const std::span children(xcb_query_tree_children(tree.get()), std::size_t(tree->children_len));
    for (const xcb_window_t window : children) {
        const auto known = m_windows.windows().find(window);
        if (known == m_windows.windows().end() || !known->second.isDrawn || known->second.isPrivate ||
            leftOut.contains(window) || !hasSettled(known->second))
            continue;
        // Without a compositor, the screen shows translucent windows as if they were not.
        drawWindow(window, known->second, corner, hasCompositor);
        m_drawn.insert(window);
    }
}

/// @param isRootPainted the root window shows its own picture wherever there is no window
void X11WindowComposer::drawBackground(QPoint corner, xcb_pixmap_t wallpaper, bool isRootPainted)
{
    xcb_connection_t *server = m_connection->get();
    const xcb_rectangle_t all{0, 0, std::uint16_t(m_size.width()), std::uint16_t(m_size.height())};
    xcb_poly_fill_rectangle(server, m_pixmap, m_context, 1, &all);
    if (wallpaper != XCB_PIXMAP_NONE) {
        // A wallpaper that has gone refuses the context, and the context the drawing.
        const xcb_gcontext_t tiled = xcb_generate_id(server);
        const std::uint32_t values[] = {XCB_FILL_STYLE_TILED, wallpaper, std::uint32_t(-corner.x()),
                                        std::uint32_t(-corner.y())};
        xcb_create_gc(server, tiled, m_pixmap,
                      XCB_GC_FILL_STYLE | XCB_GC_TILE | XCB_GC_TILE_STIPPLE_ORIGIN_X | XCB_GC_TILE_STIPPLE_ORIGIN_Y,
                      values);
        xcb_poly_fill_rectangle(server, m_pixmap, tiled, 1, &all);
        xcb_free_gc(server, tiled);
    }
    // What lies under windows is not in it.
    if (isRootPainted)
        xcb_copy_area(server, m_connection->root(), m_pixmap, m_context, std::int16_t(corner.x()),
                      std::int16_t(corner.y()), 0, 0, all.width, all.height);
}

void X11WindowComposer::drawWindow(xcb_window_t window, const X11TopWindow &top, QPoint corner, bool isBlended)
{
    const auto format = m_formats.find(top.visual);
    const QRect place = top.outer.translated(-corner);
    if (format == m_formats.end() || !place.intersects(QRect(QPoint(0, 0), m_size)))
        return;
    xcb_connection_t *server = m_connection->get();
    const xcb_xfixes_region_t shape = xcb_generate_id(server);
    const xcb_pixmap_t pixmap = xcb_generate_id(server);
    const xcb_render_picture_t picture = xcb_generate_id(server);
    // Of a window that has gone meanwhile each of these is refused, and so nothing of it is drawn.
    xcb_xfixes_create_region_from_window(server, shape, window, XCB_SHAPE_SK_BOUNDING);
    xcb_xfixes_set_picture_clip_region(server, m_picture, shape, std::int16_t(place.x() + top.border),
                                       std::int16_t(place.y() + top.border));
    xcb_composite_name_window_pixmap(server, window, pixmap);
    xcb_render_create_picture(server, picture, pixmap, format->second, 0, nullptr);
    xcb_render_composite(server, isBlended ? XCB_RENDER_PICT_OP_OVER : XCB_RENDER_PICT_OP_SRC, picture,
                         XCB_RENDER_PICTURE_NONE, m_picture, 0, 0, 0, 0, std::int16_t(place.x()),
                         std::int16_t(place.y()), std::uint16_t(place.width()), std::uint16_t(place.height()));
    xcb_render_free_picture(server, picture);
    xcb_free_pixmap(server, pixmap);
    xcb_xfixes_destroy_region(server, shape);
}

bool X11WindowComposer::hasSettled(const X11TopWindow &top) const
{
    return top.changedAt < m_madeAt || m_monotonicTime() - top.changedAt >= settling;
}

} // namespace ostrel
