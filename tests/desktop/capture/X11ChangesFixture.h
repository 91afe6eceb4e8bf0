#pragma once

#include "X11CaptureFixture.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <ostream>

namespace ostrel {

inline void PrintTo(const RowRange &rows, std::ostream *out)
{
    *out << rows.begin << " to " << rows.end;
}

inline std::unique_ptr<X11ChangeTracker> noTracker(std::shared_ptr<X11Connection>)
{
    return nullptr;
}

/// Takes each picture in two ways: kept up to date by told changes, and fetched whole. With a quiet screen the two are
/// the same, byte for byte.
class X11Changes : public X11Capture
{
protected:
    explicit X11Changes(VirtualDesktop::Options options = {.size = {640, 400}, .sessionBus = false},
                        X11CaptureSeams seams = {.pointerRest = neverAtRest})
        : X11Capture(std::move(options), std::move(seams)),
          m_wholeSource(m_desktop.display(), {.pointerRest = neverAtRest, .makeTracker = noTracker})
    {}

    using ChangedRows = std::optional<std::vector<RowRange>>;

    /// A monitor that is followed in both ways.
    struct Followed {
        std::unique_ptr<DisplayScreenshotter> kept;
        std::unique_ptr<DisplayScreenshotter> whole;
        std::vector<std::uint8_t> last = {};
    };
    Followed follow(const QString &monitor)
    {
        const DisplayContentFilter filter{.displayId = idOf(monitor), .mode = {}};
        return {.kept = opened(monitor, true), .whole = std::move(*m_wholeSource.makeScreenshotter(filter, {}))};
    }

    /// Takes a picture by told changes only, as long as somebody draws.
    static void keepUp(Followed &monitor)
    {
        const auto kept = monitor.kept->capture();
        if (!kept)
            failTest(kept.error().localizedDescription);
        remember(**kept, monitor);
    }

    /// Takes a picture in both ways. Expects them to be the same, and rows that were not told not to have changed.
    /// @return the rows that were told
    ChangedRows look(Followed &monitor)
    {
        const auto kept = monitor.kept->capture();
        if (!kept)
            failTest(kept.error().localizedDescription);
        const auto whole = monitor.whole->capture();
        if (!whole)
            failTest(whole.error().localizedDescription);
        EXPECT_FALSE((*whole)->changedRows);
        const std::size_t bytes = std::size_t((*kept)->stride) * std::size_t((*kept)->height);
        EXPECT_EQ(std::memcmp((*kept)->pixels, (*whole)->pixels, bytes), 0) << "not what the screen shows";

        ChangedRows rows;
        if ((*kept)->changedRows)
            rows.emplace((*kept)->changedRows->begin(), (*kept)->changedRows->end());
        expectOthersUnchanged(**kept, rows, monitor.last);
        remember(**kept, monitor);
        return rows;
    }

private:
    static void remember(const FrameView &view, Followed &monitor)
    {
        monitor.last.assign(view.pixels, view.pixels + view.stride * view.height);
    }

    static void expectOthersUnchanged(const FrameView &view, const ChangedRows &changed,
                                      const std::vector<std::uint8_t> &last)
    {
        if (!changed)
            return;
        for (int y = 0; y < view.height; ++y) {
            const bool isTold =
                std::ranges::any_of(*changed, [y](auto &rows) { return rows.begin <= y && y < rows.end; });
            const std::ptrdiff_t offset = y * view.stride;
            EXPECT_TRUE(isTold ||
                        std::memcmp(view.pixels + offset, &last[std::size_t(offset)], std::size_t(view.stride)) == 0)
                << "row " << y << " has changed, and nobody told";
        }
    }

    X11DisplaySource m_wholeSource;
};

} // namespace ostrel
