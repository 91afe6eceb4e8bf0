#pragma once

#include "capture/DisplaySource.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace ostrel {

/// A picture reduced to 128 x 72 pixels of R, G, B and A (always 255), top row first, without gaps between the rows.
using Downsample = std::vector<std::uint8_t>;

constexpr int downsampleWidth = 128;
constexpr int downsampleHeight = 72;
constexpr std::size_t downsampleBytes = std::size_t(downsampleWidth) * downsampleHeight * 4;

/// Reduces pictures to thumbnails. Each thumbnail pixel is the true average of the picture's pixels that it stands
/// for, so that a single changed letter on a large screen is never missed; the aspect ratio is not kept.
///
/// Pixel (x, y) stands for the columns from floor(x * width / 128) up to, not including, floor((x + 1) * width / 128),
/// though at least for one, and for the rows alike; its channels are (sum + count / 2) / count in integers.
///
/// One thread at a time; it keeps working memory between calls.
class Downsampler
{
public:
    /// Reads each row's width * 4 bytes and not one more.
    /// @return nothing when the picture has no pixels
    std::optional<Downsample> makeDownsample(const FrameView &image);
    /// Computes some of the thumbnail's rows, begin <= y < end <= 72, and leaves the others alone.
    /// @param thumbnail gets its size when it has none yet
    /// @return false when the picture has no pixels
    bool updateRows(const FrameView &image, int begin, int end, Downsample &thumbnail);

private:
    std::vector<std::uint16_t> m_columnSums;
};

/// The same thumbnail by the plainest means, several times slower: what the fast one is tested against, and what
/// pictures too large for its sums get.
std::optional<Downsample> makeReferenceDownsample(const FrameView &image);

} // namespace ostrel
