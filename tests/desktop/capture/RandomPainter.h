#pragma once

#include "X11Painter.h"

#include <functional>
#include <random>
#include <vector>

namespace ostrel {

/// Draws at random: areas, letters, scrolling, windows that come, move and go, the pointer and its shape.
class RandomPainter
{
public:
    RandomPainter(const QByteArray &display, unsigned seed) : m_painter(display), m_random(seed) {}

    void paint()
    {
        switch (number(10)) {
        case 0:
            return m_painter.fill(somewhere(200), m_random() & 0xffffff);
        case 1:
            return void(m_painter.paintNoise(somewhere(30), m_random()));
        case 2:
            return m_painter.drawCharacter(char('a' + number(26)), somewhere(1).topLeft());
        case 3:
            return m_painter.copy(somewhere(300), somewhere(1).topLeft());
        case 4:
            return m_painter.movePointer(somewhere(1).topLeft());
        case 5:
            return m_painter.setCursor(std::uint16_t(2 * number(70)), m_random() & 0xffffff);
        case 6:
            return m_windows.push_back(m_painter.openWindow(somewhere(150), m_random() & 0xffffff));
        case 7:
            return withWindow([this](xcb_window_t window) { m_painter.placeWindow(window, somewhere(150)); });
        case 8:
            return withWindow([this](xcb_window_t window) { m_painter.raiseWindow(window); });
        default:
            return closeWindow();
        }
    }

    unsigned number(unsigned limit) { return unsigned(m_random()) % limit; }

private:
    /// Also across the edges of the monitors and of the screen.
    QRect somewhere(unsigned largest)
    {
        return {int(number(680)) - 20, int(number(440)) - 20, int(1 + number(largest)), int(1 + number(largest))};
    }
    void withWindow(const std::function<void(xcb_window_t)> &act)
    {
        if (!m_windows.empty())
            act(m_windows[number(unsigned(m_windows.size()))]);
    }
    void closeWindow()
    {
        if (m_windows.empty())
            return;
        m_painter.closeWindow(m_windows.back());
        m_windows.pop_back();
    }

    X11Painter m_painter;
    std::mt19937 m_random;
    std::vector<xcb_window_t> m_windows;
};

} // namespace ostrel
