#pragma once

#include "platform/wlroots/WaylandBuffer.h"
#include "platform/wlroots/WaylandHandles.h"

#include <QRect>

#include <cstdint>
#include <optional>

namespace ostrel {

/// One request for a picture of an output. The compositor first says what memory it wants, then writes into it.
class WlrFrame
{
public:
    WlrFrame(zwlr_screencopy_manager_v1 *manager, wl_output *output, bool showsCursor);
    ~WlrFrame();
    WlrFrame(const WlrFrame &) = delete;
    WlrFrame &operator=(const WlrFrame &) = delete;

    /// All the kinds of memory that will do were told, or there will be no picture.
    bool isDescribed() const { return m_isDescribed || m_hasFailed; }
    /// The memory to offer; absent where the compositor wants none that can be shared.
    std::optional<WaylandPixelLayout> layout() const { return m_layout; }

    /// Asks for the picture at once.
    void copy(const WaylandBuffer &buffer);
    /// Asks for it as soon as it differs from the last one that this manager gave of this output.
    void copyWhenChanged(const WaylandBuffer &buffer);
    /// Takes the request back. A picture that was written before the compositor heard of it is still told, at the
    /// latest when a round trip is over.
    void withdraw();

    bool isEnded() const { return m_isReady || m_hasFailed; }
    bool isReady() const { return m_isReady; }
    bool isBottomUp() const { return m_isBottomUp; }
    /// Of a `copyWhenChanged`: all that has changed lies in here. Pixels in memory, before any turning.
    const QRect &changes() const { return m_changes; }

private:
    void listen();
    void offer(const WaylandPixelLayout &layout);

    zwlr_screencopy_frame_v1 *const m_frame;
    std::optional<WaylandPixelLayout> m_layout;
    QRect m_changes;
    bool m_isDescribed = false;
    bool m_isAskedFor = false; ///< only then a picture can be ready
    bool m_isReady = false;
    bool m_hasFailed = false;
    bool m_isBottomUp = false;
    bool m_isWithdrawn = false;
};

} // namespace ostrel
