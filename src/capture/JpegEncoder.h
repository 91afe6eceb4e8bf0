#pragma once

#include "capture/DisplaySource.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace ostrel {

/// Encodes pictures as baseline JPEG, quality 72, at their full size. Reads the pixels where they are, once, and writes
/// into a buffer that it keeps, so that nothing but the file itself is ever written. One thread at a time.
class JpegEncoder
{
public:
    JpegEncoder();
    ~JpegEncoder();
    JpegEncoder(const JpegEncoder &) = delete;
    JpegEncoder &operator=(const JpegEncoder &) = delete;

    /// @return the file's bytes, valid until the next call; nothing when the picture has no pixels or more than a
    ///         JPEG file can hold (65,500 a side)
    std::optional<std::span<const std::uint8_t>> makeJPEGData(const FrameView &image);

private:
    class Compressor;
    const std::unique_ptr<Compressor> m_compressor;
};

} // namespace ostrel
