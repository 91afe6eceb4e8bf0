#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QHash>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <list>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
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
///
/// No wait for an answer is longer than the patience: then the connection is given up, and every further answer is
/// missing at once, as after the server's end. A frozen server must not freeze us.
class X11Connection
{
public:
    static constexpr std::chrono::milliseconds defaultPatience{5'000};

    /// @param display  as in $DISPLAY; empty means that $DISPLAY decides
    /// @param patience how long the server may be silent while we wait for it
    /// @return Fault::NoXDisplay when there is no such display or it may not be used; Fault::TimedOut
    static Result<std::unique_ptr<X11Connection>> open(const QByteArray &display,
                                                       std::chrono::milliseconds patience = defaultPatience);

    X11Connection(const X11Connection &) = delete;
    X11Connection &operator=(const X11Connection &) = delete;

    xcb_connection_t *get() const { return m_connection.get(); }
    const xcb_screen_t &screen() const { return *m_screen; }
    xcb_window_t root() const { return m_screen->root; }
    bool isBroken() const { return xcb_connection_has_error(get()) != 0; }
    /// Why it is broken: Fault::TimedOut or Fault::NoXDisplay.
    Error brokenError() const;

    /// The atoms of several names for one round trip; later calls of `atom` find them here.
    void internAtoms(std::initializer_list<const char *> names);
    /// The atom of a name, made if the server has none yet. XCB_ATOM_NONE when the connection is lost.
    xcb_atom_t atom(const char *name);

    /// Waits for the answer to a request: `reply<xcb_get_geometry_reply>(cookie)`. Null when the server refused.
    template <auto Collect, class Cookie>
    auto reply(Cookie cookie) const
    {
        using Answer = std::remove_pointer_t<decltype(Collect(get(), cookie, nullptr))>;
        return X11Reply<Answer>(static_cast<Answer *>(await(cookie.sequence).answer.release()));
    }
    /// The same where the reason matters: the answer, or the server's error, or neither when the connection is lost.
    template <auto Collect, class Cookie>
    auto replyOrError(Cookie cookie) const
    {
        using Answer = std::remove_pointer_t<decltype(Collect(get(), cookie, nullptr))>;
        Outcome outcome = await(cookie.sequence);
        return std::pair(X11Reply<Answer>(static_cast<Answer *>(outcome.answer.release())), std::move(outcome.error));
    }
    /// Whether the server has carried out a request that has no answer, sent by its `_checked` function. A round trip.
    bool check(xcb_void_cookie_t cookie) const;
    /// The same where the answer to a later request has been collected already; no round trip.
    bool checkAnswered(xcb_void_cookie_t cookie) const;

    /// The number of an extension's first event. Absent when the server lacks the extension; whoever speaks to it
    /// nevertheless loses the connection. No round trip for those that are spoken
    /// here.
    std::optional<std::uint8_t> firstEventOf(xcb_extension_t &extension) const;

    /// The number that an extension's requests and generic events carry; absent as above.
    std::optional<std::uint8_t> majorOpcodeOf(xcb_extension_t &extension) const;

    /// Has the server tell of the root window what the mask says, besides what others have asked for here. Nothing is
    /// waited for.
    void selectRootEvents(std::uint32_t mask);

    /// Reads what the server has sent unasked and hands it to all subscriptions. Never waits. Events come in order
    /// with the answers: after an answer has been collected, all that happened before it is handed on here. Also for
    /// whoever subscribes to nothing: a server tells every client of a changed keyboard mapping, and what is never read
    /// is kept in memory.
    void dispatchEvents() const;

private:
    friend class X11Subscription;
    using Handlers = std::list<std::function<void(const xcb_generic_event_t &)>>;

    struct Disconnect {
        void operator()(xcb_connection_t *connection) const { xcb_disconnect(connection); }
    };
    using Handle = std::unique_ptr<xcb_connection_t, Disconnect>;

    struct Outcome {
        X11Reply<void> answer;
        X11Reply<xcb_generic_error_t> error;
    };

    X11Connection(Handle connection, const xcb_screen_t *screen, std::chrono::milliseconds patience);

    Outcome await(unsigned int sequence) const;
    bool waitForServer() const;
    bool learnExtensions() const;

    const Handle m_connection;
    const xcb_screen_t *const m_screen;
    const std::chrono::milliseconds m_patience;
    mutable bool m_hasTimedOut = false;
    std::uint32_t m_rootEvents = 0;
    QHash<QByteArray, xcb_atom_t> m_atoms;
    Handlers m_handlers;
};

/// Hands every event of a connection to a function for as long as it lives. Several may be interested in one event, so
/// each picks its own by type and identifier.
class X11Subscription
{
public:
    /// @param handler neither subscribes nor ends a subscription, and asks the server nothing
    X11Subscription(std::shared_ptr<X11Connection> connection,
                    std::function<void(const xcb_generic_event_t &)> handler);
    X11Subscription(const X11Subscription &) = delete;
    X11Subscription &operator=(const X11Subscription &) = delete;
    ~X11Subscription();

private:
    const std::shared_ptr<X11Connection> m_connection;
    const X11Connection::Handlers::iterator m_handler;
};

/// An event's type, without the mark of those that another client has sent.
inline std::uint8_t typeOf(const xcb_generic_event_t &event)
{
    return event.response_type & 0x7f;
}

} // namespace ostrel
