#pragma once

#include "platform/portal/ChangedRows.h"

#include <QList>
#include <QRect>

#include <cstdint>
#include <vector>

namespace ostrel {

/// Pictures with black places, in a copy that is kept: only rows that differ are copied again, and none as long as
/// nothing is to be black. One thread at a time.
class CoveredPicture
{
public:
    /// What is to be handed on in place of the picture: itself when no place is to be black.
    /// @param picture without gaps between its rows; what it says of changes is since the call before
    /// @param places  within the picture
    /// @return tells as changed, besides, what has become black, or is so no more. Valid until the next call
    FrameView of(const FrameView &picture, const QList<QRect> &places);

private:
    void copy(const FrameView &picture, const ChangedRows &changes);

    std::vector<std::uint8_t> m_pixels;
    bool m_isCurrent = false; ///< the copy is of the picture before
    QList<QRect> m_places;    ///< black in the picture before
    ChangedRows m_rows;       ///< told of the picture before
};

} // namespace ostrel
