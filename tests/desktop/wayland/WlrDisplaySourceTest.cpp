#include "platform/wlroots/WlrDisplaySource.h"

#include "WaylandCaptureFixture.h"
#include "capture/CaptureError.h"
#include "platform/wlroots/WlrScreenCaptureAccess.h"

#include <gtest/gtest.h>

#include <thread>
#include <wayland-server.h>

using namespace ostrel;
using namespace std::chrono_literals;

namespace {

/// A compositor that offers nothing at all.
class BareCompositor
{
public:
    explicit BareCompositor(const char *name) : m_display(wl_display_create())
    {
        if (wl_display_add_socket(m_display, name) != 0)
            failTest(QStringLiteral("no socket for a compositor"));
        m_thread = std::jthread([this](const std::stop_token &token) {
            while (!token.stop_requested()) {
                wl_event_loop_dispatch(wl_display_get_event_loop(m_display), 10);
                wl_display_flush_clients(m_display);
            }
        });
    }
    BareCompositor(const BareCompositor &) = delete;
    BareCompositor &operator=(const BareCompositor &) = delete;
    ~BareCompositor()
    {
        m_thread.request_stop();
        m_thread.join();
        wl_display_destroy_clients(m_display);
        wl_display_destroy(m_display);
    }

private:
    wl_display *m_display;
    std::jthread m_thread;
};

CapturableDisplay displayOf(const ShareableContent &content, quint32 displayId)
{
    for (const CapturableDisplay &display : content.displays) {
        if (display.displayId == displayId)
            return display;
    }
    return {};
}

TEST_F(WaylandCapture, scaledAndTurnedOutput_hasItsPixelsAsSizeAndItsPlaceInLogicalOnes)
{
    const auto content = m_source.shareableContent();
    ASSERT_TRUE(content);
    ASSERT_EQ(content->displays.size(), 2);
    EXPECT_EQ(content->mainDisplayId, idOf(0));
    EXPECT_EQ(displayOf(*content, idOf(0)),
              (CapturableDisplay{.displayId = idOf(0), .width = 320, .height = 240, .bounds = QRectF(0, 0, 320, 240)}));
    EXPECT_EQ(
        displayOf(*content, idOf(1)),
        (CapturableDisplay{.displayId = idOf(1), .width = 120, .height = 200, .bounds = QRectF(320, 0, 60, 100)}));
}

TEST_F(WaylandCapture, outputsAwayFromTheCorner_haveTheFirstInReadingOrderAsMain)
{
    m_desktop.command(QStringLiteral("output HEADLESS-1 position 500 300"));
    m_desktop.command(QStringLiteral("output HEADLESS-2 position 900 200"));
    const auto content = m_source.shareableContent();
    ASSERT_TRUE(content);
    EXPECT_EQ(content->mainDisplayId, idOf(1));
    EXPECT_EQ(displayOf(*content, idOf(0)).bounds, QRectF(-400, 100, 320, 240));
    EXPECT_EQ(displayOf(*content, idOf(1)).bounds, QRectF(0, 0, 60, 100));
}

TEST_F(WaylandCapture, eachOutput_showsItsOwnColour)
{
    waitForPicture(*opened(0), WaylandPicture::plain(firstSize, 0x336699));
    waitForPicture(*opened(1), WaylandPicture::plain(secondSize, 0xff8001));
}

TEST_F(WaylandCapture, noise_isTakenPixelByPixelWhicheverWayTheOutputStands)
{
    unsigned seed = 0;
    for (const char *transform :
         {"normal", "90", "180", "270", "flipped", "flipped-90", "flipped-180", "flipped-270"}) {
        SCOPED_TRACE(transform);
        m_desktop.command(QStringLiteral("output HEADLESS-2 transform %1").arg(QLatin1String(transform)));
        const auto content = m_source.shareableContent();
        const CapturableDisplay display = displayOf(content.value(), idOf(1));
        const auto picture = WaylandPicture::noise(QSize(int(display.width), int(display.height)), ++seed);
        const QString file = m_desktop.path(QStringLiteral("noise-%1.ppm").arg(seed));
        picture.save(file);
        m_desktop.showPicture(1, file);
        waitForPicture(*opened(1), picture);
    }
}

TEST_F(WaylandCapture, unknownDisplay_isGone)
{
    const auto screenshotter = open(m_source, 12'345);
    ASSERT_FALSE(screenshotter);
    EXPECT_TRUE(isFault(screenshotter.error(), Fault::DisplayGone));
}

TEST_F(WaylandCapture, outputThatChangesItsSize_isAnErrorUntilItIsOpenedAgain)
{
    ASSERT_TRUE(m_source.shareableContent());
    const auto screenshotter = opened(0);
    viewOf(*screenshotter);
    EXPECT_FALSE(m_source.haveDisplaysChanged());
    m_desktop.command(QStringLiteral("output HEADLESS-1 resolution 200x100"));
    for (int i = 0; i < 2; ++i) {
        const auto taken = screenshotter->capture();
        ASSERT_FALSE(taken);
        EXPECT_TRUE(isFault(taken.error(), Fault::DisplayResized)) << qPrintable(taken.error().localizedDescription);
    }
    EXPECT_TRUE(m_source.haveDisplaysChanged());
    EXPECT_EQ(viewOf(*opened(0)).width, 200);
}

TEST_F(WaylandCapture, newOutput_isAChangeUntilTheDisplaysAreReadAgain)
{
    ASSERT_EQ(m_source.shareableContent()->displays.size(), 2);
    EXPECT_FALSE(m_source.haveDisplaysChanged());
    m_desktop.command(QStringLiteral("create_output"));
    waitUntil(QStringLiteral("the new output"), 10s, [this] { return m_source.haveDisplaysChanged(); });
    // The compositor finds a place for it in a second step.
    waitUntil(QStringLiteral("the new output to have its place"), 10s,
              [this] { return m_source.shareableContent()->displays.size() == 3 && !m_source.haveDisplaysChanged(); });
}

TEST_F(WaylandCapture, compositorThatGoes_isAnErrorAndTheNextOneIsFoundAgain)
{
    ASSERT_TRUE(m_source.shareableContent());
    const auto lost = opened(0);
    viewOf(*lost);
    m_desktop.compositor().kill();
    const auto taken = lost->capture();
    ASSERT_FALSE(taken);
    EXPECT_TRUE(isFault(taken.error(), Fault::NoWaylandDisplay));
    EXPECT_FALSE(m_source.haveDisplaysChanged());
    const auto content = m_source.shareableContent();
    ASSERT_FALSE(content);
    EXPECT_TRUE(isFault(content.error(), Fault::NoWaylandDisplay));
    EXPECT_FALSE(WlrScreenCaptureAccess().preflight());

    m_desktop.restart();
    EXPECT_TRUE(isFault(lost->capture().error(), Fault::NoWaylandDisplay));
    waitForPicture(*opened(0), WaylandPicture::plain(firstSize, 0x336699));
}

TEST_F(WaylandCapture, compositorThatHangs_isGivenUpInTime)
{
    WlrDisplaySource source({}, {.patience = 100ms});
    auto hanging = open(source, idOf(0)).value();
    viewOf(*hanging);
    m_desktop.compositor().freeze();
    EXPECT_TRUE(isFault(hanging->capture().error(), Fault::TimedOut));
    EXPECT_TRUE(isFault(source.shareableContent().error(), Fault::TimedOut));
    m_desktop.compositor().thaw();
    EXPECT_TRUE(isFault(hanging->capture().error(), Fault::TimedOut)) << "its answers could be late ones";
    EXPECT_TRUE(source.shareableContent());
}

TEST_F(WaylandCapture, compositorWithoutScreencopy_isNoneToRecord)
{
    EXPECT_TRUE(WlrScreenCaptureAccess().preflight());
    const BareCompositor bare("bare");
    WlrDisplaySource source("bare");
    EXPECT_TRUE(isFault(source.shareableContent().error(), Fault::NoScreencopy));
    EXPECT_TRUE(isFault(open(source, idOf(0)).error(), Fault::NoScreencopy));
    EXPECT_FALSE(WlrScreenCaptureAccess("bare").preflight());
}

TEST_F(WaylandCapture, streams_areNotOffered)
{
    EXPECT_EQ(m_source.captureMode(), CaptureMode::Screenshots);
    const auto stream = m_source.makeStream({}, {}, {}, {});
    ASSERT_FALSE(stream);
    EXPECT_EQ(stream.error(), captureError(CaptureErrorCode::NoStream));
}

} // namespace
