#pragma once

#include "base/DisplayRules.h"
#include "base/Fault.h"
#include "platform/wlroots/WlrDisplaySource.h"
#include "support/WaylandDesktop.h"

#include <QFile>

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace ostrel {

/// Colours as red * 65536 + green * 256 + blue.
struct WaylandPicture {
    QSize size;
    std::vector<quint32> pixels;

    bool operator==(const WaylandPicture &) const = default;

    static WaylandPicture plain(QSize size, quint32 colour)
    {
        return {size, std::vector<quint32>(std::size_t(size.width() * size.height()), colour)};
    }

    static WaylandPicture noise(QSize size, unsigned seed)
    {
        std::mt19937 random(seed);
        WaylandPicture picture = plain(size, 0);
        for (quint32 &pixel : picture.pixels)
            pixel = quint32(random()) & 0xffffff;
        return picture;
    }

    static WaylandPicture of(const FrameView &view)
    {
        WaylandPicture picture = plain(QSize(view.width, view.height), 0);
        picture.copyRows(view, {.begin = 0, .end = view.height});
        return picture;
    }

    void copyRows(const FrameView &view, RowRange rows)
    {
        for (int y = rows.begin; y < rows.end; ++y) {
            for (int x = 0; x < view.width; ++x) {
                quint32 pixel = 0;
                std::memcpy(&pixel, view.pixels + y * view.stride + x * 4, sizeof(pixel));
                pixels[std::size_t(y * view.width + x)] = pixel & 0xffffff;
            }
        }
    }

    /// As a file that the desktop's background program reads.
    void save(const QString &path) const
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            failTest(QStringLiteral("\"%1\" could not be written").arg(path));
        file.write(QStringLiteral("P6\n%1 %2\n255\n").arg(size.width()).arg(size.height()).toLatin1());
        QByteArray bytes;
        for (const quint32 pixel : pixels)
            bytes.append(char(pixel >> 16)).append(char(pixel >> 8)).append(char(pixel));
        file.write(bytes);
    }
};

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
