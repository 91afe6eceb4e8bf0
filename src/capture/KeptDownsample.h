#pragma once

#include "capture/Thumbnail.h"

#include <bitset>

namespace ostrel {

/// The thumbnail of a display's newest picture, kept from one picture to the next, so that only the rows that show a
/// change are computed again. It is the same, byte for byte, as one made afresh. Sample queue only.
class KeptDownsample
{
public:
    /// Remembers what a picture has changed. To be called for every picture, in order, also for those that are never
    /// reduced: the views tell no change twice.
    void noteChanges(const FrameView &image);

    /// Computes the rows that have changed since the last update.
    /// @param image the picture that was noted last
    /// @return null when it has no pixels; else valid until the next update
    const Downsample *update(const FrameView &image, Downsampler &downsampler);

private:
    bool hasSizeOf(const FrameView &image) const { return m_width == image.width && m_height == image.height; }

    Downsample m_thumbnail;
    std::bitset<downsampleHeight> m_staleRows = std::bitset<downsampleHeight>().set();
    int m_width = 0; ///< of the picture noted last
    int m_height = 0;
};

} // namespace ostrel
