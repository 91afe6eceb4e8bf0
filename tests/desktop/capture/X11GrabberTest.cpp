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

const std::vector<RowRange> allRows{{.begin = 0, .end = area.height()}};

std::vector<std::uint8_t> grab(X11Grabber &grabber, const std::vector<RowRange> &rows = allRows)
{
    grabber.request(area.topLeft(), rows);
    if (const auto collected = grabber.collect(); !collected)
        failTest(collected.error().localizedDescription);
    return {grabber.pixels(), grabber.pixels() + std::size_t(area.width()) * std::size_t(area.height()) * 4};
}

/// Both means, on a server that has both.
class BothGrabbers : public testing::Test
{
protected:
    BothGrabbers()
    {
        const auto opened = connect(m_desktop.display());
        m_grabbers.push_back(makeSharedMemoryGrabber(opened, area.size(), *readPixelFormat(*opened)));
        m_grabbers.push_back(makeWireGrabber(opened, area.size(), *readPixelFormat(*opened)));
    }

    VirtualDesktop m_desktop{{.size = {640, 400}, .sessionBus = false}};
    X11Painter m_painter{m_desktop.display()};
    std::vector<std::unique_ptr<X11Grabber>> m_grabbers;
};

TEST_F(BothGrabbers, sharedMemoryAndWire_giveIdenticalBytes)
{
    const auto painted = m_painter.paintNoise(area, 9);
    ASSERT_TRUE(m_grabbers[0]);
    EXPECT_TRUE(grab(*m_grabbers[0]) == painted);
    EXPECT_TRUE(grab(*m_grabbers[1]) == painted);
}

TEST_F(BothGrabbers, someRows_areFetchedIntoPlaceAndOthersLeftAlone)
{
    const std::vector<RowRange> rows{{.begin = 0, .end = 1}, {.begin = 5, .end = 98}, {.begin = 176, .end = 177}};
    for (const auto &grabber : m_grabbers) {
        auto expected = m_painter.paintNoise(area, 1);
        grab(*grabber);
        const auto after = m_painter.paintNoise(area, 2);
        for (const RowRange &range : rows)
            std::memcpy(expected.data() + range.begin * grabber->stride(),
                        after.data() + range.begin * grabber->stride(),
                        std::size_t(range.end - range.begin) * std::size_t(grabber->stride()));
        EXPECT_TRUE(grab(*grabber, rows) == expected);
    }
}

TEST_F(BothGrabbers, look_givesRowsAndLeavesThePictureAlone)
{
    for (const auto &grabber : m_grabbers) {
        const auto held = m_painter.paintNoise(area, 1);
        grab(*grabber);
        const auto seen = m_painter.paintNoise(area, 2);
        const int end = 20 + grabber->longestLook();
        const auto rows = grabber->look(area.topLeft(), {.begin = 20, .end = end});
        ASSERT_TRUE(rows);
        const std::size_t bytes = std::size_t(grabber->longestLook()) * std::size_t(grabber->stride());
        EXPECT_EQ(std::memcmp(*rows, seen.data() + 20 * grabber->stride(), bytes), 0);
        EXPECT_EQ(std::memcmp(grabber->pixels(), held.data(), held.size()), 0);
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

TEST_F(BothGrabbers, rectangleOutsideTheScreen_isRefused)
{
    for (const auto &grabber : m_grabbers) {
        grabber->request({600, 0}, allRows);
        const auto collected = grabber->collect();
        ASSERT_FALSE(collected);
        EXPECT_TRUE(isFault(collected.error(), Fault::PictureRefused));
        const auto rows = grabber->look({600, 0}, {.begin = 0, .end = 1});
        ASSERT_FALSE(rows);
        EXPECT_TRUE(isFault(rows.error(), Fault::PictureRefused));
    }
}

TEST_F(BothGrabbers, oneRefusedRangeOfSeveral_failsAndTheNextRequestWorks)
{
    // The lower rows lie beyond the screen.
    const std::vector<RowRange> rows{{.begin = 100, .end = 170}, {.begin = 0, .end = 10}};
    for (const auto &grabber : m_grabbers) {
        grabber->request({0, 300}, rows);
        EXPECT_FALSE(grabber->collect());
        const auto painted = m_painter.paintNoise(area, 3);
        EXPECT_TRUE(grab(*grabber) == painted);
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
