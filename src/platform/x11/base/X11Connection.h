#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QHash>

#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <xcb/xcb.h>

namespace ostrel {

/// Frees what the X library hands out.
struct X11Free {
    void operator()(void *memory) const { std::free(memory); }
};

template <class T>
using X11Reply = std::unique_ptr<T, X11Free>;

/// A connection to an X server with its first screen. One thread at a time.
///
/// Requests are sent at once and collected later, so that several cost one round trip. An answer is missing alike
/// when its window has vanished meanwhile and when the connection is lost; `isBroken` tells the two apart. A broken
/// connection stays broken: open another one.
class X11Connection
{
public:
    /// @param display as in $DISPLAY; empty means that $DISPLAY decides
    /// @return Fault::NoXDisplay when there is no such display or it may not be used
    static Result<std::unique_ptr<X11Connection>> open(const QByteArray &display);

    X11Connection(const X11Connection &) = delete;
    X11Connection &operator=(const X11Connection &) = delete;

    xcb_connection_t *get() const { return m_connection.get(); }
    const xcb_screen_t &screen() const { return *m_screen; }
    xcb_window_t root() const { return m_screen->root; }
    bool isBroken() const { return xcb_connection_has_error(get()) != 0; }

    /// The atoms of several names for one round trip; later calls of `atom` find them here.
    void internAtoms(std::initializer_list<const char *> names);
    /// The atom of a name, made if the server has none yet. XCB_ATOM_NONE when the connection is lost.
    xcb_atom_t atom(const char *name);

    /// Waits for the answer to a request: `reply<xcb_get_geometry_reply>(cookie)`. Null when the server refused.
    template <auto Collect, class Cookie>
    auto reply(Cookie cookie) const
    {
        using Answer = std::remove_pointer_t<decltype(Collect(get(), cookie, nullptr))>;
        return X11Reply<Answer>(Collect(get(), cookie, nullptr));
    }

    /// Throws away what the server sent unasked. A server tells every client of a changed keyboard mapping; whoever
    /// never reads keeps all of it in memory.
    void discardEvents() const;

private:
    struct Disconnect {
        void operator()(xcb_connection_t *connection) const { xcb_disconnect(connection); }
    };
    using Handle = std::unique_ptr<xcb_connection_t, Disconnect>;

    X11Connection(Handle connection, const xcb_screen_t *screen);

    Handle m_connection;
    const xcb_screen_t *m_screen;
    QHash<QByteArray, xcb_atom_t> m_atoms;
};

} // namespace ostrel
