#pragma once

#include "base/Error.h"

#include <cstddef>

namespace ostrel {

class X11Connection;

/// How the server lays out a picture of the screen: always B, G, R and an unused byte.
struct X11PixelFormat {
    std::size_t scanlinePadBytes = 4;

    /// From one row to the next, in bytes.
    std::size_t stride(int width) const;
};

/// Reads the format of the root window's pictures from the connection's set-up; no round trip.
/// @return Fault::ScreenFormatUnsupported unless a pixel has 24 or 32 bits of colour in 4 bytes, blue first
Result<X11PixelFormat> readPixelFormat(const X11Connection &connection);

} // namespace ostrel
