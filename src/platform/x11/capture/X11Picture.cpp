#include "platform/x11/capture/X11Picture.h"

#include "base/Log.h"
#include "platform/x11/capture/X11RowBands.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace ostrel {

X11Picture::X11Picture(Means means, QString name, const QRect &area)
    : m_means(std::move(means)), m_name(std::move(name)), m_area(area), m_cursorLayer(area.size())
{}

void X11Picture::moveTo(QPoint corner)
{
    m_area.moveTopLeft(corner);
    m_isWhole = false;
}

Result<FrameView> X11Picture::take()
{
    // In this order: a change that comes after the tracker has told and before the rows are taken is told next time.
    // Asking for the cursor first has the tracker hear of all that was drawn until then.
    Cursor cursor = m_means.cursor ? m_means.cursor->current(m_area.topLeft()) : std::nullopt;
    const auto changes = m_means.tracker ? m_means.tracker->takeChanges() : std::nullopt;
    const auto picture = m_isWhole && changes ? update(*changes, std::move(cursor)) : fetchAll(std::move(cursor));
    m_isWhole = picture.has_value();
    if (!std::exchange(m_isViewLost, false) || !picture)
        return picture;
    m_changedRows.reset();
    return view();
}

Result<FrameView> X11Picture::takeFrom(const Substitute &substitute)
{
    m_isWhole = false;
    m_isViewLost = false;
    Cursor cursor = m_means.cursor ? m_means.cursor->current(m_area.topLeft()) : std::nullopt;
    const xcb_drawable_t screen = m_means.grabber->source();
    m_means.grabber->setSource(substitute.source);
    m_means.grabber->request(substitute.corner, {{RowRange{0, m_area.height()}}});
    const auto fetched = m_means.grabber->collect();
    m_means.grabber->setSource(screen);
    if (!fetched)
        return std::unexpected(fetched.error());
    m_cursorLayer.forget();
    for (const QRect &part : substitute.covered)
        cover(part);
    drawCursor(std::move(cursor));
    m_changedRows.reset();
    return view();
}

void X11Picture::cover(const QRect &part)
{
    constexpr std::ptrdiff_t bytesPerPixel = 4;
    const QRect seen = (part & m_area).translated(-m_area.topLeft());
    for (int y = seen.top(); y <= seen.bottom(); ++y)
        std::fill_n(m_means.grabber->pixels() + y * m_means.grabber->stride() + seen.left() * bytesPerPixel,
                    seen.width() * bytesPerPixel, std::uint8_t(0));
}

Result<FrameView> X11Picture::fetchAll(Cursor cursor)
{
    if (const auto fetched = fetch({{RowRange{0, m_area.height()}}}); !fetched)
        return std::unexpected(fetched.error());
    m_cursorLayer.forget();
    drawCursor(std::move(cursor));
    m_changedRows.reset();
    m_lastComparison = m_means.monotonicTime();
    return view();
}

Result<FrameView> X11Picture::update(const std::vector<QRect> &changes, Cursor cursor)
{
    std::vector<RowRange> rows = changedRowsOf(changes, m_area);
    const bool cursorChanges = !m_cursorLayer.shows(cursor);
    if (rows.empty() && !cursorChanges && !isAuditDue()) {
        m_changedRows.emplace();
        return view();
    }
    const auto addCursorRows = [&] {
        if (const auto covered = m_cursorLayer.rows(); covered && cursorChanges)
            rows.push_back(*covered);
    };
    const std::vector<RowRange> toFetch = rows;
    addCursorRows();
    m_cursorLayer.lift(m_means.grabber->pixels(), m_means.grabber->stride());
    if (const auto fetched = fetch(toFetch); !fetched)
        return std::unexpected(fetched.error());
    if (isAuditDue()) {
        const auto verdict = audit(rows);
        if (!verdict)
            return std::unexpected(verdict.error());
        if (*verdict == X11Audit::Verdict::Differs)
            distrustTracker();
        if (*verdict != X11Audit::Verdict::Agrees)
            return fetchAll(std::move(cursor));
    }
    drawCursor(std::move(cursor));
    addCursorRows();
    m_changedRows = mergedRows(std::move(rows));
    return view();
}

Result<> X11Picture::fetch(std::span<const RowRange> rows)
{
    m_means.grabber->request(m_area.topLeft(), rows);
    return m_means.grabber->collect();
}

bool X11Picture::isAuditDue() const
{
    return m_means.monotonicTime() - m_lastComparison >= auditInterval;
}

/// Also fetches what has changed while it looked.
Result<X11Audit::Verdict> X11Picture::audit(std::vector<RowRange> &changedRows)
{
    const auto audit = auditPicture(*m_means.grabber, *m_means.tracker, m_area);
    if (!audit)
        return std::unexpected(audit.error());
    m_lastComparison = m_means.monotonicTime();
    const std::vector<RowRange> meanwhile = changedRowsOf(audit->meanwhile, m_area);
    changedRows.insert(changedRows.end(), meanwhile.begin(), meanwhile.end());
    if (const auto fetched = fetch(meanwhile); !fetched)
        return std::unexpected(fetched.error());
    return audit->verdict;
}

void X11Picture::distrustTracker()
{
    m_means.tracker.reset();
    qCWarning(logPlatform,
              "the X server does not tell all changes of display \"%s\"; its pictures are fetched whole from now on",
              qUtf8Printable(m_name));
}

void X11Picture::drawCursor(Cursor cursor)
{
    m_cursorLayer.lower(std::move(cursor), m_means.grabber->pixels(), m_means.grabber->stride());
}

FrameView X11Picture::view() const
{
    return {
        .pixels = m_means.grabber->pixels(),
        .width = m_area.width(),
        .height = m_area.height(),
        .stride = m_means.grabber->stride(),
        .changedRows = m_changedRows ? std::optional<std::span<const RowRange>>(*m_changedRows) : std::nullopt,
    };
}

} // namespace ostrel
