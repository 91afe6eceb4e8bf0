#pragma once

#include "capture/DisplaySource.h"
#include "platform/x11/base/X11Monitors.h"
#include "platform/x11/capture/X11Cursor.h"
#include "platform/x11/capture/X11PixelFormat.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace ostrel {

class X11Connection;
class X11Grabber;

/// Takes pictures of one monitor: its part of the root window, with the cursor drawn over it. A monitor that moves is
/// followed; one that changes its size or goes ends in an error at every further picture.
class X11Screenshotter final : public DisplayScreenshotter
{
public:
    /// @return Fault::NoXDisplay, DisplayGone, ScreenFormatUnsupported
    static Result<std::unique_ptr<X11Screenshotter>> open(std::shared_ptr<X11Connection> connection, quint32 displayId,
                                                          bool showsCursor);
    ~X11Screenshotter() override;

    /// One round trip. Never empty.
    /// @return Fault::NoXDisplay, DisplayGone, DisplayResized, PictureRefused
    Result<std::optional<FrameView>> capture() override;

private:
    /// What the server says of its monitors; the same again means that nothing has moved.
    using Arrangement = std::vector<std::uint8_t>;
    /// What goes out together and shares one round trip.
    struct Requests {
        std::optional<xcb_randr_get_monitors_cookie_t> monitors;
        X11Cursor::Request cursor;
    };

    X11Screenshotter(std::shared_ptr<X11Connection> connection, X11Monitor monitor, X11PixelFormat format,
                     bool showsCursor);

    Requests send();
    Arrangement collectArrangement(const Requests &requests) const;
    Result<FrameView> collectPicture(const Requests &requests);
    void discardPicture(const Requests &requests);
    Result<> findMonitorAgain();

    const std::shared_ptr<X11Connection> m_connection;
    X11Monitor m_monitor;
    const X11PixelFormat m_format;
    const bool m_hasRandR;
    std::optional<X11Cursor> m_cursor;
    std::unique_ptr<X11Grabber> m_grabber;
    std::optional<Arrangement> m_arrangement; ///< at which `m_monitor` was read
};

} // namespace ostrel
