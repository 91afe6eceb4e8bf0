#include "platform/portal/CoveredPicture.h"

#include "platform/pixels/CoveredAreas.h"

#include <cstddef>
#include <cstring>
#include <utility>

namespace ostrel {

FrameView CoveredPicture::of(const FrameView &picture, const QList<QRect> &places)
{
    m_rows.reset();
    if (const auto &told = picture.changedRows)
        m_rows.emplace(told->begin(), told->end());
    const QList<QRect> before = std::exchange(m_places, places);
    if (m_rows && places != before) {
        for (const QRect &place : before + places)
            m_rows->push_back({.begin = place.top(), .end = place.bottom() + 1});
        m_rows = joinedRows(*std::move(m_rows));
    }
    FrameView view = picture;
    if (!places.isEmpty()) {
        copy(picture, m_isCurrent ? m_rows : std::nullopt);
        coverPixels(places, m_pixels.data(), picture.stride);
        view.pixels = m_pixels.data();
    }
    m_isCurrent = !places.isEmpty();
    view.changedRows.reset();
    if (m_rows)
        view.changedRows = *m_rows;
    return view;
}

void CoveredPicture::copy(const FrameView &picture, const ChangedRows &changes)
{
    const auto stride = std::size_t(picture.stride);
    m_pixels.resize(stride * std::size_t(picture.height));
    for (const RowRange &rows : changes.value_or(std::vector{RowRange{.begin = 0, .end = picture.height}})) {
        const std::size_t begin = std::size_t(rows.begin) * stride;
        std::memcpy(m_pixels.data() + begin, picture.pixels + begin, std::size_t(rows.end - rows.begin) * stride);
    }
}

} // namespace ostrel
