#include "platform/wlroots/WlrFrame.h"

#include <algorithm>

namespace ostrel {

namespace {

/// Coordinates on no screen, but ones that can be added without care.
constexpr std::uint32_t farthest = 1u << 20;
int clamped(std::uint32_t coordinate)
{
    return int(std::min(coordinate, farthest));
}

} // namespace

WlrFrame::WlrFrame(zwlr_screencopy_manager_v1 *manager, wl_output *output, bool showsCursor)
    : m_frame(zwlr_screencopy_manager_v1_capture_output(manager, showsCursor ? 1 : 0, output))
{
    listen();
}

WlrFrame::~WlrFrame()
{
    if (m_isWithdrawn)
        wl_proxy_destroy(reinterpret_cast<wl_proxy *>(m_frame));
    else
        zwlr_screencopy_frame_v1_destroy(m_frame);
}

void WlrFrame::listen()
{
    using Frame = zwlr_screencopy_frame_v1;
    static const auto self = [](void *data) { return static_cast<WlrFrame *>(data); };
    static const zwlr_screencopy_frame_v1_listener listener{
        .buffer =
            [](void *data, Frame *, std::uint32_t format, std::uint32_t width, std::uint32_t height,
               std::uint32_t stride) {
                self(data)->offer({.format = format,
                                   .size = QSize(clamped(width), clamped(height)),
                                   .stride = std::ptrdiff_t(stride)});
            },
        .flags =
            [](void *data, Frame *, std::uint32_t flags) {
                self(data)->m_isBottomUp = (flags & ZWLR_SCREENCOPY_FRAME_V1_FLAGS_Y_INVERT) != 0;
            },
        .ready = [](void *data, Frame *, std::uint32_t, std::uint32_t,
                    std::uint32_t) { self(data)->m_isReady = self(data)->m_isAskedFor; },
        .failed = [](void *data, Frame *) { self(data)->m_hasFailed = true; },
        .damage =
            [](void *data, Frame *, std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height) {
                self(data)->m_changes |= QRect(clamped(x), clamped(y), clamped(width), clamped(height));
            },
        .linux_dmabuf = [](void *, Frame *, std::uint32_t, std::uint32_t, std::uint32_t) {},
        .buffer_done = [](void *data, Frame *) { self(data)->m_isDescribed = true; },
    };
    zwlr_screencopy_frame_v1_add_listener(m_frame, &listener, this);
}

void WlrFrame::offer(const WaylandPixelLayout &layout)
{
    if (!m_layout)
        m_layout = layout;
}

void WlrFrame::copy(const WaylandBuffer &buffer)
{
    m_isAskedFor = true;
    zwlr_screencopy_frame_v1_copy(m_frame, buffer.get());
}

void WlrFrame::copyWhenChanged(const WaylandBuffer &buffer)
{
    m_isAskedFor = true;
    zwlr_screencopy_frame_v1_copy_with_damage(m_frame, buffer.get());
}

void WlrFrame::withdraw()
{
    // Without the library's destroy, which would throw the events away that are still on their way: among them may be
    // the one that the picture was written, and then the compositor does not tell these changes again.
    wl_proxy_marshal(reinterpret_cast<wl_proxy *>(m_frame), ZWLR_SCREENCOPY_FRAME_V1_DESTROY);
    m_isWithdrawn = true;
}

} // namespace ostrel
