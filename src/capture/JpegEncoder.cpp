#include "capture/JpegEncoder.h"

#include "base/Log.h"

#include <limits>
#include <turbojpeg.h>

namespace ostrel {

namespace {

constexpr int quality = 72;
constexpr int subsampling = TJSAMP_420;

} // namespace

JpegEncoder::JpegEncoder() : m_compressor(tjInitCompress()) {}

JpegEncoder::~JpegEncoder()
{
    if (m_compressor)
        tjDestroy(m_compressor);
}

std::optional<std::span<const std::uint8_t>> JpegEncoder::makeJPEGData(const FrameView &image)
{
    if (!m_compressor || !image.pixels || image.width <= 0 || image.height <= 0)
        return std::nullopt;
    if (image.stride <= 0 || image.stride > std::numeric_limits<int>::max())
        return std::nullopt;
    const unsigned long needed = tjBufSize(image.width, image.height, subsampling);
    if (needed == static_cast<unsigned long>(-1))
        return std::nullopt;
    if (needed > m_capacity) {
        // Uninitialised on purpose: it is sized for the worst picture, and pages that are never written cost nothing.
        m_buffer = std::make_unique_for_overwrite<std::uint8_t[]>(needed);
        m_capacity = needed;
    }
    unsigned char *file = m_buffer.get();
    unsigned long size = m_capacity;
    if (tjCompress2(m_compressor, image.pixels, image.width, int(image.stride), image.height, TJPF_BGRX, &file, &size,
                    subsampling, quality, TJFLAG_NOREALLOC) != 0) {
        qCWarning(logScreenCapture, "encoding a picture of %dx%d failed: %s", image.width, image.height,
                  tjGetErrorStr2(m_compressor));
        return std::nullopt;
    }
    return std::span<const std::uint8_t>(file, size);
}

} // namespace ostrel
