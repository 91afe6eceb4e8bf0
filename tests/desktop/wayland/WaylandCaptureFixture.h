#pragma once

#include "base/DisplayRules.h"
#include "base/Fault.h"
#include "platform/wlroots/WlrDisplaySource.h"
#include "support/WaylandDesktop.h"
#include "support/WaylandPicture.h"

#include <gtest/gtest.h>

namespace ostrel {

/// A sway with two outputs: the second is scaled and stands on its side.
class WaylandCapture : public testing::Test
{
protected:
    static constexpr QSize firstSize{320, 240};
    static constexpr QSize secondSize{120, 200}; ///< as people see it

    WaylandCapture()
        : m_desktop({{.pixels = firstSize, .corner = {0, 0}, .colour = "#336699"},
                     {.pixels = secondSize.transposed(),
                      .corner = {320, 0},
                      .scale = 2,
                      .transform = QStringLiteral("90"),
                      .colour = "#ff8001"}})
    {}

    static quint32 idOf(qsizetype output) { return displayIdentifiers({WaylandDesktop::nameOf(output)}).first(); }

    static Result<std::unique_ptr<DisplayScreenshotter>> open(DisplaySource &source, quint32 displayId)
    {
        return source.makeScreenshotter({.displayId = displayId, .mode = {}}, {});
    }

    std::unique_ptr<DisplayScreenshotter> opened(qsizetype output)
    {
        auto screenshotter = open(m_source, idOf(output));
        if (!screenshotter)
            failTest(screenshotter.error().localizedDescription);
        return std::move(*screenshotter);
    }

    static FrameView viewOf(DisplayScreenshotter &screenshotter)
    {
        const auto taken = screenshotter.capture();
        if (!taken || !*taken)
            failTest(taken ? QStringLiteral("no picture") : taken.error().localizedDescription);
        return **taken;
    }

    /// Programs draw when they like.
    static void waitForPicture(DisplayScreenshotter &screenshotter, const WaylandPicture &picture)
    {
        waitUntil(QStringLiteral("the picture"), std::chrono::seconds(20),
                  [&] { return WaylandPicture::of(viewOf(screenshotter)) == picture; });
    }

    /// Until nothing is drawn any more.
    static void waitForRest(DisplayScreenshotter &screenshotter)
    {
        waitUntil(QStringLiteral("the screen to be at rest"), std::chrono::seconds(20), [&] {
            const auto rows = viewOf(screenshotter).changedRows;
            return rows && rows->empty();
        });
    }

    WaylandDesktop m_desktop;
    WlrDisplaySource m_source;
};

} // namespace ostrel
