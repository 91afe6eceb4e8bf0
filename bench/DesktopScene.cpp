#include "DesktopScene.h"

#include "platform/x11/base/X11Connection.h"

#include <algorithm>

namespace ostrel {

namespace {

constexpr int lineHeight = 14;
constexpr int letterWidth = 6;
constexpr uint32_t paper = 0xfcfcf8;
constexpr uint32_t ink = 0x202428;

} // namespace

DesktopScene::DesktopScene(const QByteArray &display, QSize size) : m_size(size)
{
    auto opened = X11Connection::open(display);
    if (!opened)
        qFatal("%s", qUtf8Printable(opened.error().localizedDescription));
    m_connection = std::move(*opened);
    const xcb_font_t font = xcb_generate_id(m_connection->get());
    xcb_open_font(m_connection->get(), font, 5, "fixed");
    m_context = xcb_generate_id(m_connection->get());
    xcb_create_gc(m_connection->get(), m_context, m_connection->root(), XCB_GC_FONT, &font);

    drawAll();
    sync();
}

DesktopScene::~DesktopScene() = default;

void DesktopScene::drawAll()
{
    fill(0, 0, m_size.width(), m_size.height(), 0x2f4858);
    const int width = m_size.width() / 3 - 30;
    const int height = m_size.height() / 2 - 40;
    for (int column = 0; column < 3; ++column) {
        for (int row = 0; row < 2; ++row)
            drawWindow(20 + column * (width + 25), 20 + row * (height + 30), width, height);
    }
}

void DesktopScene::fill(int x, int y, int width, int height, uint32_t rgb)
{
    xcb_change_gc(m_connection->get(), m_context, XCB_GC_FOREGROUND, &rgb);
    const xcb_rectangle_t area{int16_t(x), int16_t(y), uint16_t(width), uint16_t(height)};
    xcb_poly_fill_rectangle(m_connection->get(), m_connection->root(), m_context, 1, &area);
}

void DesktopScene::writeLine(int x, int y, int columns)
{
    constexpr int longestRequest = 255;
    QByteArray text;
    for (int i = 0; i < std::min(columns, longestRequest); ++i) {
        const int letter = random(32); // some of them end a word
        text += letter < 26 ? char('a' + letter) : ' ';
    }
    const uint32_t colours[] = {ink, paper};
    xcb_change_gc(m_connection->get(), m_context, XCB_GC_FOREGROUND | XCB_GC_BACKGROUND, colours);
    xcb_image_text_8(m_connection->get(), uint8_t(text.size()), m_connection->root(), m_context, int16_t(x), int16_t(y),
                     text.constData());
}

int DesktopScene::random(int limit)
{
    m_random = m_random * 1'103'515'245u + 12'345u;
    return int((m_random >> 16) % unsigned(limit));
}

void DesktopScene::drawWindow(int x, int y, int width, int height)
{
    constexpr int titleHeight = 24;
    fill(x, y, width, titleHeight, 0x4a6fa5);
    fill(x, y + titleHeight, width, height - titleHeight, paper);
    constexpr int deepestIndent = 4;
    constexpr int indentWidth = 4 * letterWidth;
    for (int line = y + titleHeight + lineHeight; line < y + height - lineHeight; line += lineHeight) {
        if (random(4) == 0)
            continue; // between paragraphs
        const int indent = random(deepestIndent) * indentWidth;
        writeLine(x + 8 + indent, line, random((width - 16 - indent) / letterWidth));
    }
}

void DesktopScene::change()
{
    const int lines = (m_size.height() / 2 - 100) / lineHeight;
    writeLine(28, 20 + 24 + lineHeight * (1 + m_changes++ % lines), 40);
    sync();
}

void DesktopScene::changeAll()
{
    drawAll();
    sync();
}

void DesktopScene::sync() const
{
    m_connection->reply<xcb_get_input_focus_reply>(xcb_get_input_focus(m_connection->get()));
}

} // namespace ostrel
