#pragma once

#include "base/Error.h"
#include "platform/x11/capture/X11PixelFormat.h"

#include <QRect>

#include <cstdint>
#include <memory>

namespace ostrel {

class X11Connection;

/// Fetches rectangles of the root window, all of one size. One request is sent first and collected later, so that
/// others can share its round trip. One thread at a time.
class X11Grabber
{
public:
    virtual ~X11Grabber() = default;

    /// Sends the request. `collect` or `discard` comes next.
    /// @param corner of the rectangle, pixels on the X screen
    virtual void request(QPoint corner) = 0;
    /// Waits for the picture.
    /// @return its first row, which may be drawn over, until the next request; Fault::PictureRefused where the
    ///         rectangle is not all on the screen, Fault::NoXDisplay when the connection is lost
    virtual Result<std::uint8_t *> collect() = 0;
    virtual void discard() = 0;
};

/// Has the server write into memory that it shares with us: no picture passes through the connection.
/// @return null where that can't be had: a server elsewhere, without the extension, or in another container
std::unique_ptr<X11Grabber> makeSharedMemoryGrabber(std::shared_ptr<X11Connection> connection, QSize size,
                                                    X11PixelFormat format);

/// Has the picture sent over the connection: works with every server, and costs several times as much.
std::unique_ptr<X11Grabber> makeWireGrabber(std::shared_ptr<X11Connection> connection, QSize size);

} // namespace ostrel
