#pragma once

#include "X11CaptureFixture.h"

#include <chrono>
#include <memory>

namespace ostrel {

inline const QRect screen(0, 0, 640, 400);
inline constexpr std::uint32_t secretColor = 0xff00ff;
inline const QByteArray secretClass = "Secret";

inline bool shows(const Picture &picture, std::uint32_t rgb)
{
    const QRect row(0, 0, int(picture.size() / 4), 1);
    for (int i = 0; i < row.width(); ++i) {
        if (rgbAt(picture, row, QPoint(i, 0)) == rgb)
            return true;
    }
    return false;
}

/// A screen with windows, some of them of a class or a title that must not be seen.
class X11PrivateWindowsTest : public X11Capture
{
protected:
    explicit X11PrivateWindowsTest(const VirtualDesktop::Options &options = {.size = screen.size(),
                                                                             .sessionBus = false})
        : X11Capture(options),
          m_recorder(m_desktop.display(), {.monotonicTime = [this] { return m_now; }, .pointerRest = neverAtRest},
                     {.rules = [this] { return m_rules; }})
    {
        m_rules.windowClasses.append(QString::fromLatin1(secretClass));
        m_rules.titles.append(titlePattern(QStringLiteral("^Private")));
    }

    std::unique_ptr<DisplayScreenshotter> openRecorder(const QString &monitor)
    {
        return std::move(
            m_recorder.makeScreenshotter({.displayId = idOf(monitor), .mode = {}}, withoutCursor()).value());
    }
    static DisplayCaptureConfiguration withoutCursor()
    {
        DisplayCaptureConfiguration configuration;
        configuration.showsCursor = false;
        return configuration;
    }

    /// What a recording shows, after everything has had the time to be drawn.
    Picture recorded(DisplayScreenshotter &screenshotter)
    {
        m_now += std::chrono::seconds(1);
        return pictureOf(screenshotter);
    }
    /// What everybody sees.
    Picture seen(const QString &monitor) { return pictureOf(*opened(monitor)); }

    xcb_window_t openSecret(const QRect &place)
    {
        const xcb_window_t window = makeSecret(place);
        m_painter.showWindow(window);
        return window;
    }
    xcb_window_t makeSecret(const QRect &place)
    {
        const xcb_window_t window = m_painter.openWindow(place, secretColor);
        m_painter.hideWindow(window);
        m_painter.setClass(window, secretClass);
        return window;
    }

    /// A wallpaper and two windows, one upon the other.
    void drawScene()
    {
        m_painter.setWallpaper(4);
        m_below = m_painter.openWindow({50, 40, 200, 150}, 0x0000ff);
        m_above = m_painter.openWindow({150, 100, 200, 150}, 0xffff00);
    }

    PrivacyRules m_rules;
    std::chrono::milliseconds m_now{100'000};
    X11DisplaySource m_recorder;
    xcb_window_t m_below = 0;
    xcb_window_t m_above = 0;
};

inline const QString wholeScreen = monitorB; // the server's only connector

class X11WithWindowManager : public X11PrivateWindowsTest
{
protected:
    X11WithWindowManager() : X11PrivateWindowsTest({.size = screen.size(), .windowManager = true, .sessionBus = false})
    {}
};

} // namespace ostrel
