#pragma once

#include <QByteArray>
#include <QSize>

#include <memory>
#include <xcb/xcb.h>

namespace ostrel {

class X11Connection;

/// Something like a desktop at work: six windows with title bars, full of paragraphs of small text whose lines have all
/// lengths. A blank screen would flatter the encoder and noise would slander it.
class DesktopScene
{
public:
    /// Draws it on a screen of that size.
    DesktopScene(const QByteArray &display, QSize size);
    ~DesktopScene();

    /// Writes another line into one of the windows, as somebody who types. Everything is on the screen on return.
    void change();
    /// Draws everything anew with other texts, as when another workspace is shown.
    void changeAll();

private:
    void fill(int x, int y, int width, int height, uint32_t rgb);
    void writeLine(int x, int y, int columns);
    /// The next pseudo-random number below `limit`.
    int random(int limit);
    void drawAll();
    void drawWindow(int x, int y, int width, int height);
    void sync() const;

    std::unique_ptr<X11Connection> m_connection;
    QSize m_size;
    xcb_gcontext_t m_context = 0;
    unsigned m_random = 0;
    int m_changes = 0;
};

} // namespace ostrel
