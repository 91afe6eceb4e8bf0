#pragma once

#include "X11Painter.h"
#include "platform/x11/base/X11Monitors.h"
#include "platform/x11/capture/X11DisplaySource.h"
#include "support/Printers.h"
#include "support/VirtualDesktop.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace ostrel {

using Picture = std::vector<std::uint8_t>; // rows of B, G, R, 0 without gaps

inline const QRect left(0, 0, 400, 300);
inline const QRect right(400, 100, 240, 200);
// The server has one connector, "screen", and names the monitor that has it so.
inline const QList<VirtualDesktop::Monitor> twoMonitors{
    {.name = QStringLiteral("A"), .pixels = left, .primary = false},
    {.name = QStringLiteral("B"), .pixels = right, .primary = true, .hasConnector = true}};
inline const QString monitorA = QStringLiteral("A");
inline const QString monitorB = QStringLiteral("screen");

/// For pictures that show each move of the pointer at once: events tell it a moment later, so it is asked for each
/// time.
constexpr std::chrono::milliseconds neverAtRest = std::chrono::hours(24);

inline Picture copyOf(const FrameView &view)
{
    Picture picture;
    for (int y = 0; y < view.height; ++y) {
        for (int x = 0; x < view.width; ++x) {
            const std::uint8_t *pixel = view.pixels + y * view.stride + std::ptrdiff_t(x) * 4;
            picture.insert(picture.end(), {pixel[0], pixel[1], pixel[2], 0});
        }
    }
    return picture;
}

inline std::uint32_t rgbAt(const Picture &picture, const QRect &area, QPoint screenPixel)
{
    const QPoint at = screenPixel - area.topLeft();
    const std::size_t i = (std::size_t(at.y()) * std::size_t(area.width()) + std::size_t(at.x())) * 4;
    return std::uint32_t(picture[i + 2] << 16 | picture[i + 1] << 8 | picture[i]);
}

/// A display source on a screen of its own, and somebody who draws there.
class X11Capture : public testing::Test
{
protected:
    explicit X11Capture(VirtualDesktop::Options options = {.size = {640, 400}, .sessionBus = false},
                        X11CaptureSeams seams = {.pointerRest = neverAtRest})
        : m_desktop(options), m_painter(m_desktop.display()), m_source(m_desktop.display(), std::move(seams))
    {}

    quint32 idOf(const QString &name)
    {
        const auto layout = readMonitors(m_painter.connection());
        for (const X11Monitor &monitor : layout->monitors) {
            if (monitor.name == name)
                return monitor.displayId;
        }
        failTest(QStringLiteral("there is no monitor ") + name);
    }

    Result<std::unique_ptr<DisplayScreenshotter>> open(quint32 displayId, bool showsCursor = false)
    {
        DisplayCaptureConfiguration configuration;
        configuration.showsCursor = showsCursor;
        return m_source.makeScreenshotter({.displayId = displayId, .mode = {}}, configuration);
    }
    std::unique_ptr<DisplayScreenshotter> opened(const QString &monitor, bool showsCursor = false)
    {
        auto screenshotter = open(idOf(monitor), showsCursor);
        if (!screenshotter)
            failTest(screenshotter.error().localizedDescription);
        return std::move(*screenshotter);
    }

    static Picture pictureOf(DisplayScreenshotter &screenshotter)
    {
        const auto taken = screenshotter.capture();
        if (!taken)
            failTest(taken.error().localizedDescription);
        return copyOf(**taken);
    }

    VirtualDesktop m_desktop;
    X11Painter m_painter;
    X11DisplaySource m_source;
};

} // namespace ostrel
