#include "platform/x11/capture/X11Audit.h"

#include "platform/x11/capture/X11ChangeTracker.h"
#include "platform/x11/capture/X11Grabber.h"

#include <algorithm>
#include <cstring>

namespace ostrel {

namespace {

constexpr std::ptrdiff_t bytesPerPixel = 4;

bool differs(const std::uint8_t *a, const std::uint8_t *b)
{
    return std::memcmp(a, b, 3) != 0;
}

bool rowShowsTheSame(const std::uint8_t *held, const std::uint8_t *seen, int width)
{
    if (std::memcmp(held, seen, std::size_t(width) * bytesPerPixel) == 0)
        return true;
    for (int x = 0; x < width; ++x) {
        if (differs(held + x * bytesPerPixel, seen + x * bytesPerPixel))
            return false;
    }
    return true;
}

/// Marks the columns of a row that the rectangles cover.
void markCovered(std::span<const QRect> changes, const QRect &row, std::vector<bool> &covered)
{
    covered.assign(std::size_t(row.width()), false);
    for (const QRect &change : changes) {
        const QRect inside = change & row;
        for (int x = inside.left(); x <= inside.right(); ++x)
            covered[std::size_t(x - row.left())] = true;
    }
}

} // namespace

bool showsTheSame(const X11RowPair &rows)
{
    for (int y = 0; y < rows.place.height(); ++y) {
        if (!rowShowsTheSame(rows.held + y * rows.stride, rows.seen + y * rows.stride, rows.place.width()))
            return false;
    }
    return true;
}

bool isExplainedBy(std::span<const QRect> changes, const X11RowPair &rows)
{
    std::vector<bool> covered;
    for (int y = 0; y < rows.place.height(); ++y) {
        const std::uint8_t *held = rows.held + y * rows.stride;
        const std::uint8_t *seen = rows.seen + y * rows.stride;
        if (rowShowsTheSame(held, seen, rows.place.width()))
            continue;
        markCovered(changes, QRect(rows.place.left(), rows.place.top() + y, rows.place.width(), 1), covered);
        for (int x = 0; x < rows.place.width(); ++x) {
            if (!covered[std::size_t(x)] && differs(held + x * bytesPerPixel, seen + x * bytesPerPixel))
                return false;
        }
    }
    return true;
}

Result<X11Audit> auditPicture(X11Grabber &grabber, X11ChangeTracker &tracker, const QRect &area)
{
    X11Audit audit;
    for (int begin = 0; begin < area.height(); begin += grabber.longestLook()) {
        const int end = std::min(area.height(), begin + grabber.longestLook());
        const auto seen = grabber.look(area.topLeft(), {.begin = begin, .end = end});
        if (!seen)
            return std::unexpected(seen.error());
        const X11RowPair rows{.held = grabber.pixels() + begin * grabber.stride(),
                              .seen = *seen,
                              .stride = grabber.stride(),
                              .place = QRect(area.left(), area.top() + begin, area.width(), end - begin)};
        if (showsTheSame(rows))
            continue;
        // Asked after the look: whatever was drawn before it has been told by then.
        const auto changes = tracker.takeChanges();
        if (!changes) {
            audit.verdict = X11Audit::Verdict::Unclear;
            return audit;
        }
        audit.meanwhile.insert(audit.meanwhile.end(), changes->begin(), changes->end());
        if (!isExplainedBy(audit.meanwhile, rows)) {
            audit.verdict = X11Audit::Verdict::Differs;
            return audit;
        }
    }
    return audit;
}

} // namespace ostrel
