#pragma once

#include "platform/x11/base/X11Connection.h"
#include "support/TestProcess.h"

#include <QList>
#include <QPoint>
#include <QRect>
#include <QSysInfo>

#include <memory>
#include <random>
#include <vector>
#include <xcb/composite.h>
#include <xcb/xfixes.h>

namespace ostrel {

/// Puts known pixels on a screen and moves its pointer, by way of a connection of its own. Everything has happened
/// when a call returns.
class X11Painter
{
public:
    explicit X11Painter(const QByteArray &display)
    {
        auto opened = X11Connection::open(display);
        if (!opened)
            failTest(opened.error().localizedDescription);
        m_connection = std::move(*opened);
        m_context = xcb_generate_id(server());
        xcb_create_gc(server(), m_context, root(), 0, nullptr);
    }

    void fill(const QRect &area, std::uint32_t rgb)
    {
        xcb_change_gc(server(), m_context, XCB_GC_FOREGROUND, &rgb);
        const xcb_rectangle_t rectangle{int16_t(area.x()), int16_t(area.y()), uint16_t(area.width()),
                                        uint16_t(area.height())};
        xcb_poly_fill_rectangle(server(), root(), m_context, 1, &rectangle);
        sync();
    }

    /// Covers an area with noise. @return what was put there: rows of B, G, R, 0
    std::vector<std::uint8_t> paintNoise(const QRect &area, unsigned seed)
    {
        std::mt19937 random(seed);
        const std::size_t rowBytes = std::size_t(area.width()) * 4;
        std::vector<std::uint8_t> pixels(rowBytes * std::size_t(area.height()));
        for (std::size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = i % 4 == 3 ? 0 : std::uint8_t(random());
        for (int y = 0; y < area.height(); ++y) { // a row a request: none is longer than the server takes
            xcb_put_image(server(), XCB_IMAGE_FORMAT_Z_PIXMAP, root(), m_context, uint16_t(area.width()), 1,
                          int16_t(area.x()), int16_t(area.y() + y), 0, m_connection->screen().root_depth,
                          uint32_t(rowBytes), pixels.data() + std::size_t(y) * rowBytes);
        }
        sync();
        return pixels;
    }

    /// Draws one character in the small font that every server has, black on white.
    void drawCharacter(char character, QPoint baseline)
    {
        const xcb_font_t font = xcb_generate_id(server());
        xcb_open_font(server(), font, 5, "fixed");
        const std::uint32_t values[] = {0x000000, 0xffffff, font};
        xcb_change_gc(server(), m_context, XCB_GC_FOREGROUND | XCB_GC_BACKGROUND | XCB_GC_FONT, values);
        xcb_image_text_8(server(), 1, root(), m_context, int16_t(baseline.x()), int16_t(baseline.y()), &character);
        xcb_close_font(server(), font);
        sync();
    }

    void movePointer(QPoint position)
    {
        xcb_warp_pointer(server(), XCB_NONE, root(), 0, 0, 0, 0, int16_t(position.x()), int16_t(position.y()));
        sync();
    }

    /// Keeps the pointer to itself and inside a window, as a menu does.
    void confinePointer(xcb_window_t window)
    {
        const auto grabbed = m_connection->reply<xcb_grab_pointer_reply>(xcb_grab_pointer(
            server(), false, window, 0, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, window, XCB_NONE, XCB_CURRENT_TIME));
        if (!grabbed || grabbed->status != XCB_GRAB_STATUS_SUCCESS)
            failTest(QStringLiteral("the pointer could not be confined"));
    }
    QPoint pointer() const
    {
        const auto place = m_connection->reply<xcb_query_pointer_reply>(xcb_query_pointer(server(), root()));
        return {place->root_x, place->root_y};
    }

    /// Gives the screen a pointer from the server's cursor font, of one colour.
    void setCursor(std::uint16_t glyph, std::uint32_t rgb)
    {
        const auto channel = [rgb](int shift) { return std::uint16_t(((rgb >> shift) & 0xff) * 257); };
        const xcb_font_t font = xcb_generate_id(server());
        const xcb_cursor_t cursor = xcb_generate_id(server());
        xcb_open_font(server(), font, 6, "cursor");
        xcb_create_glyph_cursor(server(), cursor, font, font, glyph, std::uint16_t(glyph + 1), channel(16), channel(8),
                                channel(0), channel(16), channel(8), channel(0));
        xcb_change_window_attributes(server(), root(), XCB_CW_CURSOR, &cursor);
        xcb_free_cursor(server(), cursor);
        xcb_close_font(server(), font);
        sync();
    }

    /// Moves what an area shows to another place, as scrolling does.
    void copy(const QRect &from, QPoint to)
    {
        xcb_copy_area(server(), root(), root(), m_context, int16_t(from.x()), int16_t(from.y()), int16_t(to.x()),
                      int16_t(to.y()), uint16_t(from.width()), uint16_t(from.height()));
        sync();
    }

    /// Opens a window of one colour on top of all others, which no window manager touches; parts may lie outside the
    /// screen. It ends with the painter.
    xcb_window_t openWindow(const QRect &place, std::uint32_t rgb, xcb_window_t parent = XCB_NONE)
    {
        const xcb_window_t window = xcb_generate_id(server());
        const std::uint32_t values[] = {rgb, 1};
        xcb_create_window(server(), XCB_COPY_FROM_PARENT, window, parent == XCB_NONE ? root() : parent,
                          int16_t(place.x()), int16_t(place.y()), uint16_t(place.width()), uint16_t(place.height()), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(server(), window);
        sync();
        return window;
    }
    /// The same with a depth of its own, not shown yet. @param argb premultiplied
    xcb_window_t makeTranslucentWindow(const QRect &place, std::uint32_t argb)
    {
        const xcb_visualid_t visual = visualOfDepth(32);
        const xcb_colormap_t colormap = xcb_generate_id(server());
        xcb_create_colormap(server(), XCB_COLORMAP_ALLOC_NONE, colormap, root(), visual);
        const xcb_window_t window = xcb_generate_id(server());
        const std::uint32_t values[] = {argb, 0, 1, colormap};
        xcb_create_window(server(), 32, window, root(), int16_t(place.x()), int16_t(place.y()), uint16_t(place.width()),
                          uint16_t(place.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_COLORMAP, values);
        sync();
        return window;
    }
    /// A window that the server paints nothing into: it shows what was there before. Not shown yet.
    xcb_window_t makeUnpaintedWindow(const QRect &place)
    {
        const xcb_window_t window = xcb_generate_id(server());
        const std::uint32_t overrideRedirect = 1;
        xcb_create_window(server(), XCB_COPY_FROM_PARENT, window, root(), int16_t(place.x()), int16_t(place.y()),
                          uint16_t(place.width()), uint16_t(place.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT, &overrideRedirect);
        sync();
        return window;
    }
    /// Lets a window be seen only where this part of it is.
    void shapeWindow(xcb_window_t window, const QRect &part)
    {
        m_connection->reply<xcb_xfixes_query_version_reply>(xcb_xfixes_query_version(server(), 5, 0));
        const xcb_xfixes_region_t region = xcb_generate_id(server());
        const xcb_rectangle_t rectangle{int16_t(part.x()), int16_t(part.y()), uint16_t(part.width()),
                                        uint16_t(part.height())};
        xcb_xfixes_create_region(server(), region, 1, &rectangle);
        xcb_xfixes_set_window_shape_region(server(), window, XCB_SHAPE_SK_BOUNDING, 0, 0, region);
        xcb_xfixes_destroy_region(server(), region);
        sync();
    }
    void showWindow(xcb_window_t window)
    {
        xcb_map_window(server(), window);
        sync();
    }
    void hideWindow(xcb_window_t window)
    {
        xcb_unmap_window(server(), window);
        sync();
    }
    void lowerWindow(xcb_window_t window)
    {
        const std::uint32_t below = XCB_STACK_MODE_BELOW;
        xcb_configure_window(server(), window, XCB_CONFIG_WINDOW_STACK_MODE, &below);
        sync();
    }
    void setClass(xcb_window_t window, const QByteArray &name)
    {
        setText(window, XCB_ATOM_WM_CLASS, name.toLower() + '\0' + name + '\0');
    }
    void setTitle(xcb_window_t window, const QByteArray &title) { setText(window, XCB_ATOM_WM_NAME, title); }
    /// The one that programs set beside it today.
    void setModernTitle(xcb_window_t window, const QByteArray &title)
    {
        setText(window, m_connection->atom("_NET_WM_NAME"), title, m_connection->atom("UTF8_STRING"));
    }

    /// Says for which window this one is there.
    void setOwner(xcb_window_t window, xcb_window_t owner)
    {
        setProperty(window, "WM_TRANSIENT_FOR", XCB_ATOM_WINDOW, {owner});
        sync();
    }
    /// Says which process of this machine a window belongs to, as toolkits do.
    void setProcess(xcb_window_t window, std::uint32_t process)
    {
        setText(window, XCB_ATOM_WM_CLIENT_MACHINE, QSysInfo::machineHostName().toLocal8Bit());
        setProperty(window, "_NET_WM_PID", XCB_ATOM_CARDINAL, {process});
        sync();
    }
    /// Paints the whole screen with a pattern of noise, in the way that others can find out.
    void setWallpaper(unsigned seed)
    {
        constexpr std::uint16_t side = 64;
        const xcb_pixmap_t pixmap = xcb_generate_id(server());
        xcb_create_pixmap(server(), m_connection->screen().root_depth, pixmap, root(), side, side);
        std::mt19937 random(seed);
        std::vector<std::uint32_t> pixels(std::size_t(side) * side);
        for (std::uint32_t &pixel : pixels)
            pixel = std::uint32_t(random()) & 0x00ff00; // other than all colours of the tests
        xcb_put_image(server(), XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, m_context, side, side, 0, 0, 0,
                      m_connection->screen().root_depth, std::uint32_t(pixels.size() * 4),
                      reinterpret_cast<const std::uint8_t *>(pixels.data()));
        const std::uint32_t background = pixmap;
        xcb_change_window_attributes(server(), root(), XCB_CW_BACK_PIXMAP, &background);
        xcb_clear_area(server(), 0, root(), 0, 0, 0, 0);
        setProperty(root(), "_XROOTPMAP_ID", XCB_ATOM_PIXMAP, {pixmap});
        sync();
    }
    /// Whether a window has a picture of its own.
    bool isRedirected(xcb_window_t window)
    {
        m_connection->reply<xcb_composite_query_version_reply>(xcb_composite_query_version(server(), 0, 4));
        const xcb_pixmap_t pixmap = xcb_generate_id(server());
        const bool isNamed = m_connection->check(xcb_composite_name_window_pixmap_checked(server(), window, pixmap));
        xcb_free_pixmap(server(), pixmap);
        return isNamed;
    }

    void placeWindow(xcb_window_t window, const QRect &place)
    {
        const std::uint32_t values[] = {std::uint32_t(place.x()), std::uint32_t(place.y()),
                                        std::uint32_t(place.width()), std::uint32_t(place.height())};
        xcb_configure_window(
            server(), window,
            XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, values);
        sync();
    }
    void raiseWindow(xcb_window_t window)
    {
        const std::uint32_t above = XCB_STACK_MODE_ABOVE;
        xcb_configure_window(server(), window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        sync();
    }
    void closeWindow(xcb_window_t window)
    {
        xcb_destroy_window(server(), window);
        sync();
    }

    /// Says what a window manager would: which windows there are, each with the process that it belongs to. 0 leaves
    /// the process out.
    void announceWindows(const QList<std::uint32_t> &processes)
    {
        std::vector<xcb_window_t> windows;
        for (const std::uint32_t process : processes) {
            windows.push_back(xcb_generate_id(server()));
            xcb_create_window(server(), XCB_COPY_FROM_PARENT, windows.back(), root(), 0, 0, 10, 10, 0,
                              XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
            if (process != 0)
                setProperty(windows.back(), "_NET_WM_PID", XCB_ATOM_CARDINAL, {process});
        }
        setProperty(root(), "_NET_CLIENT_LIST", XCB_ATOM_WINDOW, windows);
        sync();
    }

    X11Connection &connection() { return *m_connection; }

private:
    xcb_connection_t *server() const { return m_connection->get(); }
    xcb_window_t root() const { return m_connection->root(); }

    void setText(xcb_window_t window, xcb_atom_t property, const QByteArray &text, xcb_atom_t type = XCB_ATOM_STRING)
    {
        xcb_change_property(server(), XCB_PROP_MODE_REPLACE, window, property, type, 8, std::uint32_t(text.size()),
                            text.constData());
        sync();
    }

    xcb_visualid_t visualOfDepth(int depth) const
    {
        for (auto it = xcb_screen_allowed_depths_iterator(&m_connection->screen()); it.rem > 0; xcb_depth_next(&it)) {
            if (it.data->depth == depth && it.data->visuals_len > 0)
                return xcb_depth_visuals(it.data)->visual_id;
        }
        failTest(QStringLiteral("the screen has no such depth"));
    }

    void setProperty(xcb_window_t window, const char *name, xcb_atom_t type, const std::vector<std::uint32_t> &values)
    {
        xcb_change_property(server(), XCB_PROP_MODE_REPLACE, window, m_connection->atom(name), type, 32,
                            std::uint32_t(values.size()), values.data());
    }

    void sync() const { m_connection->reply<xcb_get_input_focus_reply>(xcb_get_input_focus(server())); }

    std::unique_ptr<X11Connection> m_connection;
    xcb_gcontext_t m_context = 0;
};

} // namespace ostrel
