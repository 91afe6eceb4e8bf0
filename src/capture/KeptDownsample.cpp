#include "capture/KeptDownsample.h"

#include "capture/ThumbnailCells.h"

#include <algorithm>

namespace ostrel {

void KeptDownsample::noteChanges(const FrameView &image)
{
    if (!image.changedRows || !hasSizeOf(image)) {
        m_staleRows.set();
        m_width = image.width;
        m_height = image.height;
        return;
    }
    for (const RowRange &rows : *image.changedRows) {
        const int begin = std::clamp(rows.begin, 0, m_height);
        const int end = std::clamp(rows.end, 0, m_height);
        if (begin >= end)
            continue;
        const CellRange stale = cellsShowing(begin, end, downsampleHeight, m_height);
        for (std::int64_t y = stale.begin; y < stale.end; ++y)
            m_staleRows.set(std::size_t(y));
    }
}

const Downsample *KeptDownsample::update(const FrameView &image, Downsampler &downsampler)
{
    for (int begin = 0; begin < downsampleHeight; ++begin) {
        if (!m_staleRows.test(std::size_t(begin)))
            continue;
        int end = begin + 1;
        while (end < downsampleHeight && m_staleRows.test(std::size_t(end)))
            ++end;
        if (!downsampler.updateRows(image, begin, end, m_thumbnail))
            return nullptr;
        begin = end; // which is not stale
    }
    m_staleRows.reset();
    return &m_thumbnail;
}

} // namespace ostrel
