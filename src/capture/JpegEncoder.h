#pragma once

#include "capture/DisplaySource.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace ostrel {

/// Encodes pictures as baseline JPEG, quality 72, at their full size. Reads the pixels where they are and writes into
/// a buffer that it keeps, so that nothing but the file itself is ever written. One thread at a time.
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
    void *m_compressor;
    std::unique_ptr<std::uint8_t[]> m_buffer;
    std::size_t m_capacity = 0;
};

} // namespace ostrel
