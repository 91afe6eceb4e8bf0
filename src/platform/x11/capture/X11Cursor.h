#pragma once

#include "platform/x11/capture/X11PointerWatch.h"

#include <QPoint>
#include <QRect>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace ostrel {

/// What the pointer looks like and where.
struct X11CursorImage {
    QRect place;                       ///< relative to the corner of the picture that it belongs to
    std::vector<std::uint32_t> pixels; ///< premultiplied ARGB, rows of `place.width()` without gaps

    bool operator==(const X11CursorImage &) const = default;
};

/// The pointer's picture, which the screen's own picture lacks. Asked for only when it may be another than before: an
/// event tells a new shape, the watch tells rest. One thread at a time.
class X11Cursor
{
public:
    /// The server doesn't tell all: neither that a shape was given other colours, nor for certain every move. So the
    /// picture is asked for anew this often all the same. Also the longest that a server's silence is taken for rest.
    static constexpr std::chrono::milliseconds longestTrust{10'000};

    /// Asks for the extensions; a few round trips. Without XFixes there is no cursor in any picture.
    /// @param rest as in X11PointerWatch
    X11Cursor(std::shared_ptr<X11Connection> connection, std::function<std::chrono::milliseconds()> monotonicTime,
              std::chrono::milliseconds rest);

    /// At most one round trip.
    /// @param corner of the picture, pixels on the X screen
    /// @return nothing when there is no cursor
    std::optional<X11CursorImage> current(QPoint corner);

private:
    bool isKnown() const;
    void ask();
    void handle(const xcb_generic_event_t &event);

    const std::shared_ptr<X11Connection> m_connection;
    const std::function<std::chrono::milliseconds()> m_monotonicTime;
    std::optional<std::uint8_t> m_shapeEvent; ///< absent without XFixes
    X11PointerWatch m_pointer;
    bool m_hasNewShape = true;
    std::chrono::milliseconds m_askedAt{};
    std::optional<X11CursorImage> m_cursor; ///< relative to the corner of the X screen
    const X11Subscription m_events;
};

} // namespace ostrel
