#include "platform/x11/capture/X11Grabber.h"

#include "X11Painter.h"
#include "base/Fault.h"
#include "platform/x11/capture/X11DisplaySource.h"
#include "platform/x11/capture/X11SharedSegment.h"
#include "support/Printers.h"
#include "support/VirtualDesktop.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace ostrel;

namespace {

const QRect area(13, 27, 301, 177);

std::shared_ptr<X11Connection> connect(const QByteArray &display)
{
    auto opened = X11Connection::open(display);
    if (!opened)
        failTest(opened.error().localizedDescription);
    return std::move(*opened);
}

std::vector<std::uint8_t> grab(X11Grabber &grabber)
{
    grabber.request(area.topLeft());
    const auto pixels = grabber.collect();
    if (!pixels)
        failTest(pixels.error().localizedDescription);
    return {*pixels, *pixels + std::size_t(area.width()) * std::size_t(area.height()) * 4};
}

TEST(X11Grabber, sharedMemoryAndWire_giveIdenticalBytes)
{
    VirtualDesktop desktop({.size = {640, 400}, .sessionBus = false});
    X11Painter painter(desktop.display());
    const auto painted = painter.paintNoise(area, 9);
    const auto connection = connect(desktop.display());
    const auto shared = makeSharedMemoryGrabber(connection, area.size(), *readPixelFormat(*connection));
    ASSERT_TRUE(shared);
    const auto wire = makeWireGrabber(connection, area.size());
    const auto bytes = grab(*shared);
    EXPECT_TRUE(bytes == painted);
    EXPECT_TRUE(bytes == grab(*wire));
}

TEST(X11Grabber, discardedRequest_leavesTheNextOneWhole)
{
    VirtualDesktop desktop({.size = {640, 400}, .sessionBus = false});
    X11Painter painter(desktop.display());
    const auto painted = painter.paintNoise(area, 9);
    const auto connection = connect(desktop.display());
    const auto shared = makeSharedMemoryGrabber(connection, area.size(), *readPixelFormat(*connection));
    const auto wire = makeWireGrabber(connection, area.size());
    for (X11Grabber *grabber : {shared.get(), wire.get()}) {
        grabber->request({0, 0});
        grabber->discard();
        EXPECT_TRUE(grab(*grabber) == painted);
    }
}

TEST(X11Grabber, serverWithoutSharedMemory_isCapturedOverTheWire)
{
    VirtualDesktop desktop({.size = {640, 400},
                            .sessionBus = false,
                            .serverArguments = {QStringLiteral("-extension"), QStringLiteral("MIT-SHM")}});
    X11Painter painter(desktop.display());
    const QRect screen(0, 0, 640, 400);
    const auto painted = painter.paintNoise(screen, 10);
    const auto connection = connect(desktop.display());
    EXPECT_FALSE(makeSharedMemoryGrabber(connection, area.size(), *readPixelFormat(*connection)));

    X11DisplaySource source(desktop.display());
    const quint32 displayId = source.shareableContent()->mainDisplayId;
    DisplayCaptureConfiguration configuration;
    configuration.showsCursor = false;
    const auto screenshotter = source.makeScreenshotter({.displayId = displayId, .mode = {}}, configuration);
    ASSERT_TRUE(screenshotter);
    const auto taken = (*screenshotter)->capture();
    ASSERT_TRUE(taken);
    ASSERT_EQ((*taken)->stride, 640 * 4);
    EXPECT_EQ(std::memcmp((*taken)->pixels, painted.data(), painted.size()), 0);
}

TEST(X11Grabber, rectangleOutsideTheScreen_isRefusedByBothMeans)
{
    VirtualDesktop desktop({.size = {640, 400}, .sessionBus = false});
    const auto connection = connect(desktop.display());
    const auto shared = makeSharedMemoryGrabber(connection, area.size(), *readPixelFormat(*connection));
    const auto wire = makeWireGrabber(connection, area.size());
    for (X11Grabber *grabber : {shared.get(), wire.get()}) {
        grabber->request({600, 0});
        const auto pixels = grabber->collect();
        ASSERT_FALSE(pixels);
        EXPECT_TRUE(isFault(pixels.error(), Fault::PictureRefused));
    }
}

TEST(X11SharedSegment, moreMemoryThanThereIs_isRefused)
{
    VirtualDesktop desktop({.size = {640, 400}, .sessionBus = false});
    EXPECT_FALSE(X11SharedSegment::attach(connect(desktop.display()), std::size_t(1) << 62));
}

TEST(X11PixelFormat, oddScanlinePad_widensTheRows)
{
    EXPECT_EQ(X11PixelFormat{.scanlinePadBytes = 4}.stride(641), 2564u);
    EXPECT_EQ(X11PixelFormat{.scanlinePadBytes = 64}.stride(641), 2624u);
}

} // namespace
