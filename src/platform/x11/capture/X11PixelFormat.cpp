#include "platform/x11/capture/X11PixelFormat.h"

#include "base/Fault.h"
#include "platform/x11/base/X11Connection.h"

namespace ostrel {

namespace {

constexpr int bitsPerPixel = 32;
constexpr std::size_t bytesPerPixel = 4;

const xcb_format_t *formatOfDepth(const xcb_setup_t *setup, uint8_t depth)
{
    for (auto it = xcb_setup_pixmap_formats_iterator(setup); it.rem > 0; xcb_format_next(&it)) {
        if (it.data->depth == depth)
            return it.data;
    }
    return nullptr;
}

const xcb_visualtype_t *rootVisual(const xcb_screen_t &screen)
{
    for (auto depth = xcb_screen_allowed_depths_iterator(&screen); depth.rem > 0; xcb_depth_next(&depth)) {
        for (auto it = xcb_depth_visuals_iterator(depth.data); it.rem > 0; xcb_visualtype_next(&it)) {
            if (it.data->visual_id == screen.root_visual)
                return it.data;
        }
    }
    return nullptr;
}

bool isBlueFirst(const xcb_visualtype_t &visual)
{
    return visual.red_mask == 0xff0000 && visual.green_mask == 0xff00 && visual.blue_mask == 0xff;
}

std::unexpected<Error> unsupported(const QString &detail)
{
    return std::unexpected(faultError(Fault::ScreenFormatUnsupported, detail));
}

} // namespace

std::size_t X11PixelFormat::stride(int width) const
{
    const std::size_t bytes = std::size_t(width) * bytesPerPixel;
    return (bytes + scanlinePadBytes - 1) / scanlinePadBytes * scanlinePadBytes;
}

Result<X11PixelFormat> readPixelFormat(const X11Connection &connection)
{
    const xcb_setup_t *setup = xcb_get_setup(connection.get());
    const xcb_screen_t &screen = connection.screen();
    const xcb_format_t *format = formatOfDepth(setup, screen.root_depth);
    if (screen.root_depth != 24 && screen.root_depth != 32)
        return unsupported(QStringLiteral("a colour depth of %1").arg(screen.root_depth));
    if (!format || format->bits_per_pixel != bitsPerPixel)
        return unsupported(QStringLiteral("%1 bits a pixel").arg(format ? format->bits_per_pixel : 0));
    if (setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST)
        return unsupported(QStringLiteral("the most significant byte first"));
    const xcb_visualtype_t *visual = rootVisual(screen);
    if (!visual || !isBlueFirst(*visual))
        return unsupported(QStringLiteral("not blue, green and red in this order"));
    return X11PixelFormat{.scanlinePadBytes = std::size_t(format->scanline_pad) / 8};
}

} // namespace ostrel
