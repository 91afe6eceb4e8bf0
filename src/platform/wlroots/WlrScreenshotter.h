#pragma once

#include "capture/DisplaySource.h"
#include "platform/pixels/PixelConversion.h"
#include "platform/wlroots/WaylandBuffer.h"
#include "platform/wlroots/WaylandOutputs.h"
#include "platform/wlroots/WlrCaptureSeams.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace ostrel {

class PrivateCover;
class WlrFrame;

/// Takes pictures of one output, with the cursor in them. Each call asks the compositor for a picture as soon as there
/// is something new in it, and takes silence for "unchanged". An output that changes its size or goes ends in an error
/// at every further picture. What is private is black; a picture of which nobody can tell what is private is an error.
class WlrScreenshotter final : public DisplayScreenshotter
{
public:
    /// @param outputs must offer screencopy
    /// @param output  one of theirs
    WlrScreenshotter(std::shared_ptr<WaylandOutputs> outputs, const WaylandOutput &output, bool showsCursor,
                     std::shared_ptr<PrivateCover> cover, WlrCaptureSeams seams);

    /// Blocks for up to `unchangedAfter` and a round trip while nothing changes, and after private windows have moved
    /// until they are at rest.
    /// @return Fault::NoWaylandDisplay, TimedOut, DisplayGone, DisplayResized, PictureRefused, ScreenFormatUnsupported
    Result<std::optional<FrameView>> capture() override;

private:
    /// How the output is turned now, if a picture of this size in memory fits it still.
    Result<int> transformFor(QSize size) const;
    /// Waits for an answer that is due, or until the output has gone. A compositor that takes too long is given up.
    Result<> wait(const std::function<bool()> &isMet);
    /// Waits until the compositor has said what memory it wants.
    Result<WaylandPixelLayout> describe(WlrFrame &frame);
    /// Has the memory ready that is wanted.
    /// @param covered what will be covered at least; where it differs from the last picture, that one is of no use
    Result<> prepare(const WaylandPixelLayout &layout, const QList<QRect> &covered);
    /// Asks for the picture, and covers what is private in it.
    /// @param covered pixels that are to be covered, as was found out before
    Result<std::optional<FrameView>> finish(WlrFrame &frame, QSize size, QList<QRect> covered);
    /// Asks for the picture and waits for it. @return whether there is a new one
    Result<bool> fetch(WlrFrame &frame);
    Result<bool> outcome(const WlrFrame &frame) const;
    /// These areas of the desktop in pixels of the picture, as the output stands now.
    QList<QRect> pixelsOf(const QList<QRect> &areas) const;
    /// Brings the upright picture up to date. @return whether it is known that only the rows `m_changed` may differ
    bool takeOver(const WlrFrame &frame, int transform);
    FrameView coveredView(const QList<QRect> &covered, std::optional<std::span<const RowRange>> changedRows);
    std::uint8_t *pixels() { return m_conversion.isIdentity() ? m_buffer->pixels() : m_upright.data(); }
    std::ptrdiff_t stride() const;
    Error refused() const;

    const std::shared_ptr<WaylandOutputs> m_outputs;
    const std::uint32_t m_global;
    const QString m_name;
    const QSize m_size;
    const bool m_showsCursor;
    const std::shared_ptr<PrivateCover> m_cover;
    const WlrCaptureSeams m_seams;
    const WaylandHandle<zwlr_screencopy_manager_v1> m_manager;
    std::unique_ptr<WaylandBuffer> m_buffer;
    PixelConversion m_conversion;
    std::vector<std::uint8_t> m_upright; ///< used where the buffer is not upright by itself
    /// When the whole picture was fetched; absent as long as the buffer holds none.
    std::optional<std::chrono::milliseconds> m_wholeAt;
    bool m_isWhole = false; ///< the picture under way
    RowRange m_changed;
    QList<QRect> m_covered; ///< what is black in the view given last
};

} // namespace ostrel
